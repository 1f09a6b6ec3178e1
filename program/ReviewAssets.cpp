#include "program/ReviewAssets.h"

namespace kelvane {

// Colours have a contrast of at least 4.5 to 1 with what is behind them (WCAG 2.2), in the light and in the dark. What
// is off the screen is not laid out, so that thousands of changes stay fluent.
const std::string_view reviewStyle = R"css(
:root { color-scheme: light dark; --page: #fff; --text: #1d1d1f; --quiet: #5f6368; --line: #d5d7db; --link: #0b57d0;
  --goes: #fdeaea; --goes-word: #f3b5b5; --comes: #e7f6ea; --comes-word: #a9dfb4; --box: #f6f7f9; }
@media (prefers-color-scheme: dark) { :root { --page: #17181a; --text: #e8e9eb; --quiet: #a5abb3; --line: #3a3d42;
  --link: #8ab4f8; --goes: #3a2022; --goes-word: #7d2f35; --comes: #1b3223; --comes-word: #2b6a3d; --box: #202225; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text); font: 16px/1.5 system-ui, sans-serif; }
a { color: var(--link); }
:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
.skip { position: absolute; left: -9999px; }
.skip:focus { left: 1rem; top: 1rem; background: var(--page); padding: .5rem; }
header { padding: 1rem 1.5rem; border-bottom: 1px solid var(--line); }
h1 { font-size: 1.4rem; margin: 0; }
header p { margin: .25rem 0 0; color: var(--quiet); overflow-wrap: anywhere; }
.columns { display: grid; grid-template-columns: minmax(16rem, 22rem) minmax(0, 1fr); }
nav { border-right: 1px solid var(--line); padding: 1rem; position: sticky; top: 0; height: 100vh; overflow-y: auto; }
nav h2 { font-size: .9rem; color: var(--quiet); margin: 1rem 0 .25rem; }
nav ol { list-style: none; margin: 0; padding: 0; }
nav li { content-visibility: auto; contain-intrinsic-size: auto 4.2rem; }
nav a { display: block; padding: .35rem .5rem; border-radius: .4rem; text-decoration: none; color: inherit; }
nav a:hover { background: var(--box); }
nav .script { font-weight: 600; overflow-wrap: anywhere; }
nav .label, nav time, nav .words { color: var(--quiet); font-size: .875rem; }
nav .label { display: block; overflow-wrap: anywhere; }
main { padding: 1rem 1.5rem; max-width: 60rem; }
article { border: 1px solid var(--line); border-radius: .6rem; margin: 0 0 1.25rem; content-visibility: auto;
  contain-intrinsic-size: auto 24rem; }
article:target { border-color: var(--link); }
article > header { border: 0; padding: .75rem 1rem; }
article h2 { font-size: 1.05rem; margin: 0; overflow-wrap: anywhere; }
.size { color: var(--quiet); }
.diff { border-top: 1px solid var(--line); padding: .5rem 0; }
.diff > div { padding: .05rem 1rem .05rem 2rem; white-space: pre-wrap; overflow-wrap: anywhere; position: relative; min-height: 1.6em; }
.diff .sign { position: absolute; left: .8rem; color: var(--quiet); }
.diff del, .diff ins { text-decoration: none; }
.goes { background: var(--goes); } .comes { background: var(--comes); }
.goes mark { background: var(--goes-word); color: inherit; text-decoration: line-through; }
.comes mark { background: var(--comes-word); color: inherit; }
.diff .gap { color: var(--quiet); }
.back { border-top: 1px solid var(--line); padding: .6rem 1rem; display: flex; gap: .75rem; flex-wrap: wrap;
  align-items: center; }
code { background: var(--box); padding: .2rem .4rem; border-radius: .3rem; overflow-wrap: anywhere; }
button { font: inherit; padding: .25rem .75rem; border-radius: .4rem; border: 1px solid var(--line);
  background: var(--box); color: inherit; cursor: pointer; }
.charts { display: grid; grid-template-columns: repeat(auto-fill, minmax(13rem, 1fr)); gap: 1rem; margin: 0 0 1.5rem; }
.charts h3 { font-size: .9rem; margin: 0; overflow-wrap: anywhere; }
.charts figure { margin: 0; border: 1px solid var(--line); border-radius: .6rem; padding: .6rem; }
.charts svg { width: 100%; height: 3rem; display: block; }
.charts polyline { fill: none; stroke: var(--link); stroke-width: 2; vector-effect: non-scaling-stroke; }
.charts figcaption { color: var(--quiet); font-size: .875rem; }
main > h2 { font-size: 1.1rem; }
@media (max-width: 48rem) { .columns { grid-template-columns: minmax(0, 1fr); }
  nav { position: static; height: auto; max-height: 40vh; border-right: 0; border-bottom: 1px solid var(--line); }
  main { padding: 1rem; } }
@media (prefers-reduced-motion: no-preference) { html { scroll-behavior: smooth; } }
)css";

const std::string_view reviewScript = R"js(
document.addEventListener("click", async event => {
  const button = event.target.closest("button[data-copies]");
  if (!button) return;
  const code = document.getElementById(button.dataset.copies);
  try {
    await navigator.clipboard.writeText(code.textContent);
  } catch {
    getSelection().selectAllChildren(code);
    document.execCommand("copy");
  }
  button.textContent = "Copied";
  setTimeout(() => { button.textContent = "Copy"; }, 2000);
});
)js";

}  // namespace kelvane
