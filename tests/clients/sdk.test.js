// The official TypeScript SDK's client.

import assert from "node:assert/strict";
import test from "node:test";

import { cannotRun, libraryFor, program, useEveryTool } from "./session.js";

const skip = cannotRun("@modelcontextprotocol/sdk");

async function session(context, allowingWrites) {
  const { Client } = await import("@modelcontextprotocol/sdk/client/index.js");
  const { StdioClientTransport } = await import("@modelcontextprotocol/sdk/client/stdio.js");
  const library = libraryFor(context);
  const args = ["serve", "--library", library, ...(allowingWrites ? ["--allow-writes"] : [])];
  const transport = new StdioClientTransport({ command: program, args, stderr: "pipe" });
  let complaints = "";
  transport.stderr.on("data", (bytes) => (complaints += bytes));
  const client = new Client({ name: "kelvane-clients", version: "1.0.0" });
  await client.connect(transport);
  try {
    assert.deepEqual(client.getServerVersion(), { name: "kelvane", version: "1.0.0" });
    assert.deepEqual(client.getServerCapabilities(), { tools: {} });
    await client.ping();
    await useEveryTool(
      { listTools: () => client.listTools(), callTool: (name, args) => client.callTool({ name, arguments: args }) },
      library,
      { allowingWrites },
    );
    await assert.rejects(client.callTool({ name: "no_such_tool", arguments: {} }), /No such tool: no_such_tool/);
  } finally {
    await client.close();
  }
  assert.equal(complaints, "", "standard error stays empty");
}

test("the SDK's client reads", { skip }, (context) => session(context, false));
test("the SDK's client reads and writes", { skip }, (context) => session(context, true));
