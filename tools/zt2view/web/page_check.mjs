// Drives a zt2view page in headless Debian chromium and checks it:
//   node page_check.mjs PAGE.html --nodes A,B,... [--parents NODE=PARENT,...] [--animated NODE,...]
//                       [--hidden NODE@SECONDS,...] [--mesh-moves NODE@SECONDS,...]
//                       [--layout] [--viewport WIDTHxHEIGHT] [--camera NAME]
//                       [--drop FILE,...] [--open FILE,...] [--screenshot OUT.png [--at SECONDS]]
// --drop drops the files on the page at once (a drop event with the files)
// and --open gives them to its "Open…" input; each may come several times,
// and they are done in order before the checks below, which then see the
// scene shown last. After each the page's title and message are printed.
// The page must load with no console error and list every node named, every
// row under another showing a parent; with --parents, NODE's row must show
// PARENT and stand under PARENT's row; with
// --animated, scrubbing from the start to the end must move each NODE; with
// --hidden, NODE must show at the start and have world scale 0 at SECONDS;
// --mesh-moves, the mean of NODE's drawn vertices (skinned ones where their
// joints put them) must move between the start and SECONDS by as much as
// NODE itself does (within 1%) and by something;
// --layout, the grid must lie under the meshes and the view take at least
// 60% of the window's width; --viewport sizes the window (1280x720);
// --camera looks through the scene's camera NAME before the screenshot;
// --at takes the screenshot at that time of the animation.
// Exit 0 when every check holds, 1 when one fails, 2 when the browser cannot
// be run.
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { pathToFileURL } from 'node:url';
import { chromium } from 'playwright-core';

const args = process.argv.slice(2);
const option = (name) => {
  const i = args.indexOf(name);
  return i >= 0 ? args[i + 1] : undefined;
};
const page = args[0];
const nodes = (option('--nodes') || '').split(',').filter(Boolean);
const animated = (option('--animated') || '').split(',').filter(Boolean);
const hidden = (option('--hidden') || '').split(',').filter(Boolean).map((h) => {
  const at = h.lastIndexOf('@');
  return { node: h.slice(0, at), time: Number(h.slice(at + 1)) };
});
const meshMoves = (option('--mesh-moves') || '').split(',').filter(Boolean).map((h) => {
  const at = h.lastIndexOf('@');
  return { node: h.slice(0, at), time: Number(h.slice(at + 1)) };
});
const parents = (option('--parents') || '').split(',').filter(Boolean).map((p) => p.split('='));
const screenshot = option('--screenshot');
const [viewWidth, viewHeight] = (option('--viewport') || '1280x720').split('x').map(Number);
const sceneCamera = option('--camera');
const shotTime = option('--at');
const browserPath = process.env.ZTX_CHROMIUM || '/usr/bin/chromium';

if (!fs.existsSync(browserPath)) {
  console.error(`${browserPath} not found (install Debian's chromium)`);
  process.exit(2);
}

const failures = [];
const profile = fs.mkdtempSync(path.join(os.tmpdir(), 'zt2view-check-'));
let context;
try {
  context = await chromium.launchPersistentContext(profile, {
    executablePath: browserPath,
    headless: true,
    viewport: { width: viewWidth, height: viewHeight },
    args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync',
      // WebGL on the CPU: the only kind a machine without display has.
      '--enable-unsafe-swiftshader'],
  });
  const tab = context.pages()[0] || (await context.newPage());
  tab.on('console', (m) => {
    if (m.type() === 'error') failures.push(`console error: ${m.text()}`);
  });
  tab.on('pageerror', (e) => failures.push(`page error: ${e.message}`));
  // The page must not reach out to anything.
  await tab.route((url) => !url.protocol.startsWith('file') && !url.protocol.startsWith('data'), (route) => {
    failures.push(`network request: ${route.request().url()}`);
    return route.abort();
  });
  await tab.goto(pathToFileURL(path.resolve(page)).href);
  await tab.waitForSelector('body[data-ready="true"]', { timeout: 60000 });

  let handled = 0;
  for (let i = 0; i < args.length; ++i) {
    if (args[i] !== '--drop' && args[i] !== '--open') continue;
    const files = args[i + 1].split(',');
    if (args[i] === '--open') {
      await tab.setInputFiles('#open', files);
    } else {
      const contents = files.map((f) => ({ name: path.basename(f), bytes: [...fs.readFileSync(f)] }));
      await tab.evaluate((dropped) => {
        const data = new DataTransfer();
        for (const f of dropped) data.items.add(new File([new Uint8Array(f.bytes)], f.name));
        document.getElementById('view').dispatchEvent(new DragEvent('drop', { dataTransfer: data, bubbles: true }));
      }, contents);
    }
    await tab.waitForSelector(`body[data-handled="${++handled}"]`, { timeout: 60000 });
    const [title, message] = await tab.evaluate(() => [document.title, document.getElementById('message').textContent]);
    console.log(`after ${args[i]} ${files.map((f) => path.basename(f)).join(',')}: title "${title}", message "${message}"`);
  }

  const rows = await tab.$$eval('#node-tree tr', (trs) => trs.map((r) => ({
    node: r.dataset.node, treeParent: r.dataset.treeParent, parent: r.querySelector('td.parent').textContent })));
  const listed = rows.map((r) => r.node);
  for (const n of nodes) if (!listed.includes(n)) failures.push(`node tree lacks "${n}" (lists ${listed.join(', ')})`);
  for (const r of rows) if (r.treeParent && !r.parent) failures.push(`"${r.node}" stands under "${r.treeParent}" but shows no parent`);
  for (const [node, parent] of parents) {
    const r = rows.find((x) => x.node === node);
    if (!r) failures.push(`node tree lacks "${node}"`);
    else if (r.parent !== parent || r.treeParent !== parent) failures.push(`"${node}" shows parent "${r.parent}" and stands under "${r.treeParent}", not "${parent}"`);
  }

  if (animated.length > 0 || hidden.length > 0 || meshMoves.length > 0) {
    const duration = await tab.evaluate(() => window.zt2view.duration);
    if (!(duration > 0)) failures.push('the page has no animation to scrub');
    const scrubTo = async (t, what, node) => {
      await tab.$eval('#scrub', (s, v) => {
        s.value = String(v);
        s.dispatchEvent(new Event('input', { bubbles: true }));
      }, t);
      return tab.evaluate(([w, n]) => window.zt2view[w](n), [what, node]);
    };
    const text = (v) => v.map((c) => c.toFixed(3)).join(',');
    for (const node of animated) {
      const start = await scrubTo(0, 'worldPosition', node);
      const end = await scrubTo(duration, 'worldPosition', node);
      if (!start || !end) {
        failures.push(`no node "${node}" in the scene`);
        continue;
      }
      const moved = Math.hypot(end[0] - start[0], end[1] - start[1], end[2] - start[2]);
      console.log(`"${node}" moved ${moved.toFixed(4)} from ${text(start)} to ${text(end)}`);
      if (!(moved > 1e-3)) failures.push(`scrubbing does not move "${node}"`);
    }
    for (const { node, time } of meshMoves) {
      const from = await scrubTo(0, 'meshCentre', node);
      const to = await scrubTo(time, 'meshCentre', node);
      const nodeFrom = await scrubTo(0, 'worldPosition', node);
      const nodeTo = await scrubTo(time, 'worldPosition', node);
      if (!from || !to || !nodeFrom || !nodeTo) {
        failures.push(`no mesh "${node}" in the scene`);
        continue;
      }
      const distance = (a, b) => Math.hypot(b[0] - a[0], b[1] - a[1], b[2] - a[2]);
      const moved = distance(from, to), nodeMoved = distance(nodeFrom, nodeTo);
      console.log(`"${node}" mesh moved ${moved.toFixed(4)} (its node ${nodeMoved.toFixed(4)}) from ${text(from)} to ${text(to)} at ${time} s`);
      if (!(moved > 1e-3) || Math.abs(moved - nodeMoved) > 0.01 * nodeMoved) failures.push(`the mesh of "${node}" does not move with it`);
    }
    for (const { node, time } of hidden) {
      const shown = await scrubTo(0, 'worldScale', node);
      const gone = await scrubTo(time, 'worldScale', node);
      if (!shown || !gone) {
        failures.push(`no node "${node}" in the scene`);
        continue;
      }
      console.log(`"${node}" scale ${text(shown)} at 0 s, ${text(gone)} at ${time} s`);
      if (!(Math.min(...shown.map(Math.abs)) > 1e-3)) failures.push(`"${node}" does not show at 0 s`);
      if (!(Math.max(...gone.map(Math.abs)) < 1e-6)) failures.push(`"${node}" is not hidden at ${time} s`);
    }
  }
  if (args.includes('--layout')) {
    const l = await tab.evaluate(() => window.zt2view.layout());
    console.log(`grid at ${l.gridY.toFixed(3)}, meshes from ${l.meshBottom.toFixed(3)}; view ${l.viewWidth} of ${l.pageWidth} px`);
    if (Math.abs(l.gridY - l.meshBottom) > 1e-6) failures.push('the grid does not lie under the meshes');
    if (l.viewWidth < 0.6 * l.pageWidth) failures.push(`the view takes ${l.viewWidth} of ${l.pageWidth} px`);
  }
  if (sceneCamera) {
    const options = await tab.$$eval('#view-camera option', (os) => os.map((o) => [o.value, o.textContent]));
    const chosen = options.find(([, name]) => name === sceneCamera);
    if (!chosen) failures.push(`no scene camera "${sceneCamera}" to look through (has ${options.map(([, n]) => n).join(', ')})`);
    else await tab.selectOption('#view-camera', chosen[0]);
  }
  if (screenshot) {
    if (shotTime !== undefined) {
      await tab.$eval('#scrub', (s, v) => {
        s.value = String(v);
        s.dispatchEvent(new Event('input', { bubbles: true }));
      }, Number(shotTime));
    }
    await tab.waitForTimeout(500);  // a few frames after the last change
    await tab.screenshot({ path: screenshot });
  }
} catch (e) {
  failures.push(`browser: ${e.message}`);
} finally {
  if (context) await context.close();
  fs.rmSync(profile, { recursive: true, force: true });
}

for (const f of failures) console.log(`FAIL ${f}`);
console.log(failures.length === 0 ? `OK ${page}` : `${failures.length} failure(s) in ${page}`);
process.exit(failures.length === 0 ? 0 : 1);
