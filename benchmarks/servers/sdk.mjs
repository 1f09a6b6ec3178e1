// The same small server on the official TypeScript SDK, for comparison: it answers pings and has one tool, read_script.
//
//     node sdk.mjs LIBRARY

import { readFile } from "node:fs/promises";
import { join, normalize } from "node:path";
import { McpServer } from "../../tests/clients/node_modules/@modelcontextprotocol/sdk/dist/esm/server/mcp.js";
import { StdioServerTransport } from "../../tests/clients/node_modules/@modelcontextprotocol/sdk/dist/esm/server/stdio.js";
import { z } from "../../tests/clients/node_modules/zod/index.js";

const library = process.argv[2];
const server = new McpServer({ name: "sdk", version: "1.0.0" });
server.registerTool(
  "read_script",
  { description: "A script's text", inputSchema: { id: z.string().describe("Identifier of the script") } },
  async ({ id }) => {
    const path = normalize(join(library, id));
    if (!path.startsWith(library)) throw new Error(`"${id}" is not inside the library`);
    return { content: [{ type: "text", text: await readFile(path, "utf8") }] };
  },
);
await server.connect(new StdioServerTransport());
