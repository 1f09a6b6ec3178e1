// The MCP inspector's command line: a new process, and so a new server, for each call.

import { execFile } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import test from "node:test";
import { fileURLToPath } from "node:url";
import { promisify } from "node:util";

import { cannotRun, libraryFor, listTools, program, useEveryTool } from "./session.js";

const skip = cannotRun("@modelcontextprotocol/inspector-cli");
const inspector = fileURLToPath(new URL("node_modules/@modelcontextprotocol/inspector-cli/build/cli.js", import.meta.url));

function inspectorOf(context, library, ...switches) {
  const folder = mkdtempSync(join(tmpdir(), "kelvane-inspector-"));
  context.after(() => rmSync(folder, { recursive: true }));
  const config = join(folder, "config.json");
  const args = ["serve", "--library", library, ...switches];
  writeFileSync(config, JSON.stringify({ mcpServers: { kelvane: { command: program, args } } }));

  const inspect = async (...options) => {
    const command = [inspector, "--cli", "--config", config, "--server", "kelvane", ...options];
    const { stdout } = await promisify(execFile)(process.execPath, command);
    return JSON.parse(stdout);
  };
  return {
    listTools: () => inspect("--method", "tools/list"),
    callTool: (name, args) => {
      // It takes no empty value, which for these tools is the same as none.
      const pairs = Object.entries(args).filter(([, value]) => value !== "");
      const options = pairs.flatMap(([key, value]) => ["--tool-arg", `${key}=${value}`]);
      return inspect("--method", "tools/call", "--tool-name", name, ...options);
    },
  };
}

test("the inspector lists what a reader may use", { skip }, async (context) => {
  await listTools(inspectorOf(context, libraryFor(context)), { allowingWrites: false });
});

test("the inspector reads and writes", { skip }, async (context) => {
  const library = libraryFor(context);
  await useEveryTool(inspectorOf(context, library, "--allow-writes"), library, { allowingWrites: true });
});
