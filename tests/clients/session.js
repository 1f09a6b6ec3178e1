// What every client does with the program, whatever the client: it lists the tools and calls each of them on a copy of
// the example library, and what comes back and what is then on the disk is compared with what should be there.

import assert from "node:assert/strict";
import { cpSync, mkdtempSync, readFileSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

const examples = fileURLToPath(new URL("../../examples/library", import.meta.url));
const clock = /^[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}$/;

const readingTools = [
  "list_scripts", "list_folders", "list_versions", "read_script", "list_chapters", "read_chapter",
];
const writingTools = [
  "create_script", "create_folder", "rename", "save_version", "update_script", "append_to_script",
  "add_chapter", "rename_chapter", "update_chapter", "move_chapter", "remove_chapter",
];

export const program = process.env.KELVANE_PROGRAM;
assert.ok(program, "KELVANE_PROGRAM names no program. ./run test-clients sets it.");

/// A copy of the example library, which is gone after the test.
export function libraryFor(test) {
  const folder = mkdtempSync(join(tmpdir(), "kelvane-clients-"));
  test.after(() => rmSync(folder, { recursive: true }));
  cpSync(examples, folder, { recursive: true });
  return folder;
}

/// Why a package cannot run on this Node.js, by its own word; false where it can.
export function cannotRun(name) {
  const description = new URL(`node_modules/${name}/package.json`, import.meta.url);
  const needed = /^>=\s*([0-9]+)/.exec(JSON.parse(readFileSync(description)).engines?.node ?? "");
  const here = Number(process.versions.node.split(".")[0]);
  return needed && here < Number(needed[1]) ? `${name} needs Node.js ${needed[1]}, and this is ${here}.` : false;
}

/// Lists the tools. `client` has listTools() and callTool(name, arguments), which give the two results.
export async function listTools(client, { allowingWrites }) {
  const { tools } = await client.listTools();
  const names = tools.map((tool) => tool.name);
  assert.deepEqual(names, allowingWrites ? [...readingTools, ...writingTools] : readingTools);
  for (const { name, description, inputSchema } of tools) {
    assert.ok(description.length > 0, name);
    assert.equal(inputSchema.type, "object", name);
    for (const required of inputSchema.required) assert.equal(inputSchema.properties[required].type, "string", name);
  }
  return names;
}

/// Lists the tools and calls each of them.
export async function useEveryTool(client, library, { allowingWrites }) {
  const names = await listTools(client, { allowingWrites });
  const called = new Set();
  const answer = async (isError, name, args) => {
    called.add(name);
    const result = await client.callTool(name, args);
    assert.equal(result.content.length, 1, name);
    assert.equal(result.content[0].type, "text", name);
    assert.equal(result.isError, isError, `${name}: ${result.content[0].text}`);
    return result.content[0].text;
  };
  const text = (name, args = {}) => answer(false, name, args);
  const data = async (name, args = {}) => JSON.parse(await text(name, args));
  const refusal = (name, args) => answer(true, name, args);
  const file = (id) => readFileSync(join(library, id), "utf8");

  await readLibrary({ text, data, refusal, file });
  await readChapters({ text, data, refusal });
  if (allowingWrites) {
    await writeLibrary({ text, data, refusal, file });
    await editChapters({ text, data, refusal, file });
  }
  assert.deepEqual([...called].sort(), [...names].sort(), "every tool was called");
}

async function readLibrary({ text, data, refusal, file }) {
  const script = (id, name) => ({ id, name, kind: "script" });
  const folder = (id, name, children) => ({ id, name, kind: "folder", children });
  assert.deepEqual(await data("list_scripts"), [
    folder("Auf Deutsch", "Auf Deutsch", [script("Auf Deutsch/Die Bäckerei um vier.md", "Die Bäckerei um vier")]),
    folder("Family", "Family", [script("Family/A Toast for My Sister.md", "A Toast for My Sister")]),
    folder("Podcast", "Podcast", [
      folder("Podcast/Night Ferries", "Night Ferries", [
        script("Podcast/Night Ferries/Opening, take 2.md", "Opening, take 2"),
        script("Podcast/Night Ferries/Opening, take 10.md", "Opening, take 10"),
      ]),
    ]),
    folder("Talks", "Talks", [
      script("Talks/What a Broken Bicycle Taught Me.md", "What a Broken Bicycle Taught Me"),
    ]),
    folder("Tutorials", "Tutorials", [
      script("Tutorials/Your First Loaf of Bread.md", "Your First Loaf of Bread"),
    ]),
    script("Thank-You Speech.md", "Thank-You Speech"),
    script("Welcome to the Clock Museum.md", "Welcome to the Clock Museum"),
  ]);
  assert.deepEqual(await data("list_folders"), [
    { id: "Auf Deutsch", name: "Auf Deutsch" },
    { id: "Family", name: "Family" },
    { id: "Podcast", name: "Podcast" },
    { id: "Podcast/Night Ferries", name: "Night Ferries" },
    { id: "Talks", name: "Talks" },
    { id: "Tutorials", name: "Tutorials" },
  ]);

  const german = "Auf Deutsch/Die Bäckerei um vier.md";
  assert.equal(await text("read_script", { id: german }), file(german));
  assert.equal(await text("read_script", { id: "Thank-You Speech.md" }), "");
  assert.deepEqual(await data("list_versions", { id: german }), []);

  assert.equal(await refusal("read_script", { id: "Nowhere.md" }), 'Nothing at "Nowhere.md"');
  assert.equal(await refusal("read_script", { id: "../Nowhere.md" }), '"../Nowhere.md" is not inside the library');
  assert.equal(await refusal("read_script", { id: "Talks" }), '"Talks" is a folder, not a script');
  assert.equal(await refusal("read_script", {}), 'Missing "id"');
}

async function readChapters({ text, data, refusal }) {
  const id = "Welcome to the Clock Museum.md";
  const chapters = await data("list_chapters", { id });
  assert.deepEqual(chapters.map(({ chapter, title }) => [chapter, title]), [
    [1, "The entrance hall"], [2, "The sleeping room"], [3, "The room of small machines"], [4, "The way out"],
  ]);
  let wordsBefore = 0;
  for (const { chapter, words, starts_at } of chapters) {
    const body = await text("read_chapter", { id, chapter: String(chapter) });
    assert.equal(words, body.split(/\s+/).length);
    const seconds = Math.floor((wordsBefore * 60) / 150);
    assert.equal(starts_at, `${Math.floor(seconds / 60)}:${String(seconds % 60).padStart(2, "0")}`);
    wordsBefore += words;
  }
  assert.match(await text("read_chapter", { id, chapter: "2" }), /^Go through the low door .* in the house\.$/s);
  assert.deepEqual(await data("list_chapters", { id: "Family/A Toast for My Sister.md" }), []);
  assert.equal(
    await refusal("read_chapter", { id, chapter: "7" }),
    "There is no chapter 7. This script has 4, numbered 1 to 4.",
  );
}

async function writeLibrary({ text, data, refusal, file }) {
  assert.deepEqual(await data("create_folder", { name: "Drafts", folder: "Talks" }), {
    id: "Talks/Drafts", name: "Drafts", kind: "folder",
  });
  const made = { name: "Überall Züge", folder: "Talks/Drafts" };
  const id = "Talks/Drafts/Überall Züge.md";
  assert.deepEqual(await data("create_script", { ...made, text: "one two\n" }), {
    id, name: "Überall Züge", kind: "script",
  });
  assert.deepEqual(await data("create_script", made), {
    id: "Talks/Drafts/Überall Züge 2.md", name: "Überall Züge 2", kind: "script",
  });
  assert.equal(file(id), "one two\n");

  const saved = await data("save_version", { id, note: "the first words" });
  assert.match(saved.saved, clock);
  assert.deepEqual(saved, { id, saved: saved.saved, name: "the first words", words: 2 });
  assert.equal(
    await refusal("save_version", { id: "Thank-You Speech.md", note: "empty" }),
    '"Thank-You Speech.md" is empty, so there is nothing to keep',
  );

  const summary = { id, name: "Überall Züge", kind: "script" };
  const update = { id, text: "three words now\n", note: "one more" };
  assert.deepEqual(await data("update_script", update), { ...summary, words: 3 });
  assert.deepEqual(await data("append_to_script", { id, text: "and four after", note: "the end" }), {
    ...summary, words: 6,
  });
  assert.match(file(id), /^three words now\n\nand four after\n?$/);
  assert.equal(await refusal("update_script", { id, text: "", note: "emptied" }), 'Missing "text"');

  const versions = await data("list_versions", { id });
  assert.deepEqual(versions.map(({ name, words }) => [name, words]), [
    ["Before — the end", 3], ["Before — one more", 2], ["the first words", 2],
  ]);
  for (const version of versions) assert.match(version.saved, clock);

  assert.deepEqual(await data("rename", { id: "Talks/Drafts", name: "Sketches" }), {
    id: "Talks/Sketches", name: "Sketches", kind: "folder",
  });
  const moved = "Talks/Sketches/Überall Züge.md";
  assert.match(await text("read_script", { id: moved }), /^three words now/);
  assert.deepEqual(await data("list_versions", { id: moved }), versions);
  assert.equal(await refusal("read_script", { id }), `Nothing at "${id}"`);
}

async function editChapters({ text, data, refusal, file }) {
  const id = "Tutorials/Your First Loaf of Bread.md";
  const before = file(id);
  const titles = (chapters) => chapters.map(({ title }) => title);
  const original = titles(await data("list_chapters", { id }));
  assert.equal(original.length, 5);

  const added = { id, title: "When it goes wrong", text: "Eat it with butter.", before: "5" };
  const [first, second, third, fourth, fifth] = original;
  assert.deepEqual(titles(await data("add_chapter", added)), [
    first, second, third, fourth, "When it goes wrong", fifth,
  ]);
  assert.equal(await text("read_chapter", { id, chapter: "5" }), "Eat it with butter.");
  assert.equal(titles(await data("rename_chapter", { id, chapter: "5", title: "Mistakes" }))[4], "Mistakes");
  const rewritten = await data("update_chapter", { id, chapter: "5", text: "Eat it with butter and salt." });
  assert.equal(rewritten[4].words, 6);
  assert.deepEqual(titles(await data("move_chapter", { id, chapter: "5", to: "1" })), ["Mistakes", ...original]);
  assert.deepEqual(titles(await data("remove_chapter", { id, chapter: "1", keep_text: "no" })), original);
  const words = (script) => script.split(/\s+/);
  assert.deepEqual(words(file(id)), words(before));
  assert.deepEqual((await data("list_versions", { id })).map(({ name }) => name), [
    "Before — removed chapter 1",
    "Before — moved chapter 5 to 1",
    "Before — rewrote chapter 5",
    "Before — renamed chapter 5",
    "Before — added chapter When it goes wrong",
  ]);
  assert.equal(
    await refusal("remove_chapter", { id, chapter: "1", keep_text: "maybe" }),
    '"keep_text" is "yes" or "no"',
  );
}
