// The AI clients' own command lines read what the program wrote into their configurations. Only their "mcp"
// sub-commands are run, in a home of their own that is gone after the test and with nothing else in the environment.

import assert from "node:assert/strict";
import { spawnSync } from "node:child_process";
import { cpSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import { test } from "node:test";
import { fileURLToPath } from "node:url";

const examples = fileURLToPath(new URL("../../examples/library", import.meta.url));
const program = process.env.KELVANE_PROGRAM;
assert.ok(program, "KELVANE_PROGRAM names no program. ./run test-ai-clients sets it.");

const claude = packageNamed("@anthropic-ai/claude-code", "cli-wrapper.cjs");
const codex = packageNamed("@openai/codex", "bin/codex.js");

/// An installed package: its command line and its version.
function packageNamed(name, commandLine) {
  const folder = new URL(`node_modules/${name}/`, import.meta.url);
  return {
    version: `${name} ${JSON.parse(readFileSync(new URL("package.json", folder))).version}`,
    commandLine: fileURLToPath(new URL(commandLine, folder)),
  };
}

/// A home in which the program can be set up and the clients run.
function homeFor(test) {
  const home = mkdtempSync(join(tmpdir(), "kelvane-ai-clients-"));
  test.after(() => rmSync(home, { recursive: true, force: true, maxRetries: 5 }));
  const library = join(home, "Scripts");
  cpSync(examples, library, { recursive: true });

  const run = (command, ...words) => {
    const env = { HOME: home, PATH: process.env.PATH };
    const { error, status, stdout, stderr } =
      spawnSync(command, words, { cwd: home, env, input: "", encoding: "utf8", timeout: 120_000 });
    assert.ifError(error);
    return { status, stdout, stderr };
  };
  const kelvane = (...words) => {
    const outcome = run(program, ...words);
    assert.deepEqual([outcome.status, outcome.stderr], [0, ""], `kelvane ${words.join(" ")}: ${outcome.stderr}`);
  };
  const mcp = (client, ...words) => run(process.execPath, client.commandLine, "mcp", ...words);
  kelvane("settings", "library", library);
  kelvane("settings", "enable");
  const file = (name) => join(home, name);
  const write = (name, text) => {
    mkdirSync(dirname(file(name)), { recursive: true });
    writeFileSync(file(name), text);
  };
  return { run, kelvane, mcp, file, write };
}

/// What Claude says of our entry; its exit status tells nothing.
function claudeOnOurs(home) {
  const { stdout, stderr } = home.mcp(claude, "list");
  const lines = stdout.split("\n").filter((line) => line.startsWith("kelvane:"));
  assert.ok(lines.length <= 1, stdout);
  return lines[0] ?? `nothing of ours: ${stdout}${stderr}`;
}

test(`${claude.version} connects to what was registered with it`, (t) => {
  const home = homeFor(t);
  assert.match(claudeOnOurs(home), /^nothing of ours: .*No MCP servers/s);
  home.kelvane("connect", "claude");
  const said = claudeOnOurs(home);
  t.diagnostic(said);
  assert.ok(said.includes(program), said);
  assert.match(said, /Connected$/);

  home.kelvane("settings", "disable");
  assert.match(claudeOnOurs(home), /Failed to connect/);
  home.kelvane("settings", "enable");

  // Claude has written more into its file meanwhile.
  home.kelvane("disconnect", "claude");
  assert.match(claudeOnOurs(home), /^nothing of ours: .*No MCP servers/s);
});

test(`${codex.version} shows what was registered with it`, (t) => {
  const home = homeFor(t);
  const shown = () => home.mcp(codex, "get", "kelvane", "--json");
  assert.match(shown().stderr, /No MCP server named 'kelvane'/);
  home.kelvane("connect", "codex");
  const { status, stdout, stderr } = shown();
  assert.equal(status, 0, stderr);
  const entry = JSON.parse(stdout);
  t.diagnostic(JSON.stringify(entry));
  assert.deepEqual([entry.name, entry.enabled], ["kelvane", true]);
  assert.deepEqual([entry.transport.type, entry.transport.command, entry.transport.args], ["stdio", program, []]);

  home.kelvane("disconnect", "codex");
  const gone = shown();
  assert.notEqual(gone.status, 0);
  assert.match(gone.stderr, /No MCP server named 'kelvane'/);
});

test(`${claude.version} connects where its file holds JSON that no value of ours can`, (t) => {
  const home = homeFor(t);
  home.write(".claude.json", String.raw`{"note": "\ud800", "limit": 1e400, "mcpServers": {}}`);
  home.kelvane("connect", "claude");
  const said = claudeOnOurs(home);
  assert.ok(said.includes(program), said);
  assert.match(said, /Connected$/);
});

test(`${codex.version} reads the TOML that the program reads`, (t) => {
  const rows = [
    ["an inline table of several lines", "[t]\na = {\n  b = 1, # c\n  d = [],\n}\n", true],
    ["a server as an inline table", "mcp_servers.other = {\n  command = \"x\",\n}\n", true],
    ["escapes", String.raw`t.a = "\e[0m\x41\xe9"`, true],
    ["times without seconds", "[t]\na = 07:32\nb = 1979-05-27T07:32Z\n", true],
    ["a comma first in an inline table", "t.a = { , }\n", false],
    ["an escape by a capital", String.raw`t.a = "\E"`, false],
    ["a bare key with a plus", "[t]\na+b = 1\n", false],
    ["a bare key outside ASCII", "[t]\n\u00e9 = 1\n", false],
    ["a hexadecimal fraction", "[t]\na = 0x1.8p3\n", false],
  ];
  for (const [description, text, isTOML] of rows) {
    const home = homeFor(t);
    home.write(".codex/config.toml", text);
    assert.equal(home.run(program, "connect", "codex").status === 0, isTOML, description);
    const { status, stderr } = home.mcp(codex, ...(isTOML ? ["get", "kelvane", "--json"] : ["list"]));
    assert.equal(status === 0, isTOML, `${description}: ${stderr}`);
    if (!isTOML) assert.equal(readFileSync(home.file(".codex/config.toml"), "utf8"), text, description);
  }
});
