#pragma once

namespace movra::tool {

/// The parts of the report page that are the same in each.
inline constexpr const char* htmlHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Super-resolution report</title>
<style>
:root { color-scheme: light dark; --page: #fafafa; --ink: #1d1d1f; --soft: #6b6b70; --line: #d8d8dc; --card: #fff; --good: #1a7f4b; --poor: #b3541e; --arrow: #2563c9; }
@media (prefers-color-scheme: dark) {
  :root { --page: #16171a; --ink: #ececf0; --soft: #a0a1a8; --line: #34363c; --card: #1f2126; --good: #52c98a; --poor: #f0975c; --arrow: #7fb0ff; }
}
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 1080px; padding: 16px; background: var(--page); color: var(--ink); font: 16px/1.5 system-ui, sans-serif; }
h1 { font-size: 1.5rem; margin: 0 0 8px; }
h2 { font-size: 1.1rem; margin: 0 0 8px; }
section { background: var(--card); border: 1px solid var(--line); border-radius: 8px; padding: 16px; margin: 16px 0; }
.status { border-left: 4px solid; padding: 4px 12px; margin: 0 0 12px; }
.good { border-color: var(--good); }
.poor { border-color: var(--poor); }
#pair { position: relative; line-height: 0; --at: 50%; touch-action: pan-y; cursor: ew-resize; }
#pair img { width: 100%; image-rendering: pixelated; }
#before { position: absolute; inset: 0; clip-path: inset(0 calc(100% - var(--at)) 0 0); }
#line { position: absolute; top: 0; bottom: 0; left: var(--at); width: 2px; margin-left: -1px; background: #fff; box-shadow: 0 0 3px #000; }
#slider { width: 100%; margin: 8px 0 0; }
.ends { display: flex; justify-content: space-between; color: var(--soft); font-size: .875rem; }
.bar { display: flex; gap: 8px; align-items: center; margin: 8px 0; font-variant-numeric: tabular-nums; }
.bar img { flex: 1; height: 14px; min-width: 0; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { padding: 3px 12px 3px 0; text-align: left; font-weight: normal; border-bottom: 1px solid var(--line); }
td { text-align: right; white-space: nowrap; }
th { color: var(--soft); overflow-wrap: anywhere; min-width: 8em; }
.values { display: flex; flex-wrap: wrap; gap: 8px 32px; color: var(--soft); margin-bottom: 8px; }
.values strong { font-size: 1.5rem; color: var(--ink); }
.wide { overflow-x: auto; }
.fields { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(220px, 45%), 1fr)); gap: 12px; margin-top: 12px; }
.beside { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(300px, 100%), 1fr)); gap: 0 16px; }
.fields p { grid-column: 1 / -1; }
figure { margin: 0; min-width: 0; }
figcaption, .small { color: var(--soft); font-size: .8rem; overflow-wrap: anywhere; margin: 0; }
svg { width: 100%; border: 1px solid var(--line); border-radius: 4px; }
svg path { stroke: var(--arrow); stroke-width: 1.5; vector-effect: non-scaling-stroke; fill: none; }
svg circle { fill: var(--arrow); }
.coverage { width: 100%; max-width: 640px; image-rendering: pixelated; }
pre { white-space: pre-wrap; overflow-wrap: anywhere; margin: 0; }
</style>
</head>
<body>
<h1>Super-resolution report</h1>
)";

inline constexpr const char* htmlSlider =
    R"(<input id="slider" type="range" min="0" max="100" value="50" step="0.1" aria-label="share of the image that shows the reference frame">
<div class="ends"><span>reference frame, bicubic</span><span>super-resolution</span></div>
)";

/// The number behind # in the address puts the slider, as a link to a place does.
inline constexpr const char* htmlTail = R"(<script>
const pair = document.getElementById("pair"), slider = document.getElementById("slider");
const show = () => pair.style.setProperty("--at", slider.value + "%");
slider.addEventListener("input", show);
const follow = (event) => {
  const box = pair.getBoundingClientRect();
  slider.value = 100 * (event.clientX - box.left) / box.width;
  show();
};
pair.addEventListener("pointerdown", (event) => { pair.setPointerCapture(event.pointerId); follow(event); });
pair.addEventListener("pointermove", (event) => { if (event.buttons) follow(event); });
const fromAddress = () => { if (location.hash) { slider.value = location.hash.slice(1); show(); } };
addEventListener("hashchange", fromAddress);
fromAddress();
</script>
</body>
</html>
)";

}  // namespace movra::tool
