// The preview page's script: reads the scene embedded in the page, shows it
// with orbit controls, lists its nodes and materials, and plays its animation;
// a scene dropped on the page (or opened) replaces it, a .zt2 converted by the
// WebAssembly build of zt2view's own converter that the page carries.
// Bundled with three.js into zt2view's page, so that viewing needs no network.
import * as THREE from 'three';
import { GLTFLoader } from 'three/addons/loaders/GLTFLoader.js';
import { OrbitControls } from 'three/addons/controls/OrbitControls.js';

// The bytes in base64 in the page's element `id`, or null when there is none.
function embeddedBytes(id) {
  const element = document.getElementById(id);
  if (!element) return null;
  const raw = atob(element.textContent.trim());
  const bytes = new Uint8Array(raw.length);
  for (let i = 0; i < raw.length; ++i) bytes[i] = raw.charCodeAt(i);
  return bytes;
}

function el(tag, props = {}, ...children) {
  const e = document.createElement(tag);
  Object.assign(e, props);
  for (const c of children) e.append(c);
  return e;
}

// One row per node, parents first and children indented under them; roots
// in the order of the file. The parent shown is the file's; a node the file
// puts at the root but glTF had to hang elsewhere (a skin's joints gathered
// under one node) shows that node.
function fillNodeTree(json) {
  const list = document.getElementById('node-tree');
  const nodes = json.nodes || [];
  const roots = (json.scenes && json.scenes[0] && json.scenes[0].nodes) || nodes.map((_, i) => i);
  const row = (i, depth, parent) => {
    const n = nodes[i];
    const x = n.extras || {};
    const keys = x.transformKeyCount !== undefined ? `${x.transformKeyCount} / ${x.visibilityKeyCount}` : '-';
    const parentName = x.parentName || (parent !== undefined ? nodes[parent].name : '');
    const tr = el('tr', { className: 'node' },
      el('td', { className: 'name', textContent: n.name }),
      el('td', { textContent: x.type || '' }),
      el('td', { className: 'parent', textContent: parentName }),
      el('td', { className: 'props', textContent: (x.userProperties || '').replace(/\r?\n/g, '; ') }),
      el('td', { className: 'keys', textContent: keys }));
    tr.dataset.node = n.name;
    if (parent !== undefined) tr.dataset.treeParent = nodes[parent].name;
    tr.firstChild.style.paddingLeft = `${0.3 + depth * 0.7}em`;
    list.append(tr);
    for (const c of n.children || []) row(c, depth + 1, i);
  };
  for (const r of roots) row(r, 0, undefined);
}

// Per node that shows a mesh: its vertices, triangles and materials as the
// file holds them (the glTF primitives are the mesh's material groups).
function fillMeshes(json) {
  const list = document.getElementById('meshes');
  const accessors = json.accessors || [];
  let total = [0, 0];
  for (const n of json.nodes || []) {
    if (n.mesh === undefined) continue;
    const prims = json.meshes[n.mesh].primitives;
    const vertices = prims.reduce((a, p) => a + accessors[p.attributes.POSITION].count, 0);
    const triangles = prims.reduce((a, p) => a + (p.indices !== undefined ? accessors[p.indices].count / 3 : 0), 0);
    const materials = new Set(prims.map((p) => p.material)).size;
    total = [total[0] + vertices, total[1] + triangles];
    const tr = el('tr', {}, el('td', { className: 'name', textContent: n.name }),
      el('td', { className: 'count', textContent: vertices.toLocaleString('en') }),
      el('td', { className: 'count', textContent: triangles.toLocaleString('en') }),
      el('td', { className: 'count', textContent: String(materials) }));
    tr.dataset.node = n.name;
    list.append(tr);
  }
  if (list.children.length === 0) list.append(el('tr', {}, el('td', { colSpan: 4, textContent: 'No mesh in the file.' })));
  else if (list.children.length > 1) {
    list.append(el('tr', {}, el('td', { textContent: 'All' }),
      el('td', { className: 'count', textContent: total[0].toLocaleString('en') }),
      el('td', { className: 'count', textContent: total[1].toLocaleString('en') }), el('td')));
  }
}

function colourText(c) {
  return c ? `(${c.slice(0, 3).map((v) => Math.round(v)).join(', ')})` : '';
}

function fillMaterials(json) {
  const list = document.getElementById('materials');
  const listed = (json.materials || []).filter((m) => (m.extras || {}).inMaterialList);
  if (listed.length === 0) list.append(el('li', { textContent: 'No material list in the file.' }));
  const named = (json.materials || []).filter((m) => !(m.extras || {}).inMaterialList).map((m) => m.name);
  if (named.length > 0) list.append(el('li', { textContent: `Named by meshes only: ${named.join(', ')}` }));
  for (const m of listed) {
    const x = m.extras;
    const swatch = el('span', { className: 'swatch' });
    swatch.style.background = `rgb(${x.diffuse.slice(0, 3).map(Math.round).join(',')})`;
    const layers = x.layerFiles.map((name, i) => (name ? `layer ${i + 1}: ${name}` : '')).filter(Boolean).join(', ');
    list.append(el('li', { className: 'material' }, swatch,
      el('b', { textContent: m.name }),
      ` diffuse ${colourText(x.diffuse)} ambient ${colourText(x.ambient)} specular ${colourText(x.specular)}`,
      layers ? ` - ${layers}` : ''));
  }
}

// Frames the meshes; lights and cameras often stand far off. A skinned mesh
// stands where its bones put it, not where its node is: its box comes from
// the skinned vertices. Returns the size framed.
function frame(camera, controls, object) {
  object.updateMatrixWorld(true);
  object.traverse((o) => {
    if (o.isSkinnedMesh) {
      o.skeleton.update();
      o.computeBoundingBox();
    }
  });
  const box = new THREE.Box3();
  object.traverse((o) => {
    if (o.isMesh) box.expandByObject(o);
  });
  if (box.isEmpty()) box.setFromObject(object);
  if (box.isEmpty()) box.set(new THREE.Vector3(-1, -1, -1), new THREE.Vector3(1, 1, 1));
  const size = box.getSize(new THREE.Vector3()).length() || 1;
  const centre = box.getCenter(new THREE.Vector3());
  camera.near = size / 1000;
  camera.far = size * 100;
  // Far enough that the box's sphere fits the narrower of the view's angles.
  const half = THREE.MathUtils.degToRad(camera.fov / 2);
  const narrower = camera.aspect < 1 ? Math.atan(Math.tan(half) * camera.aspect) : half;
  const distance = (size / 2) / Math.sin(narrower) * 1.05;
  camera.position.copy(centre).add(new THREE.Vector3(0.55, 0.4, 0.75).normalize().multiplyScalar(distance));
  camera.updateProjectionMatrix();
  controls.target.copy(centre);
  controls.update();
  return { size, box };
}

// The page's converter: compiled once, on the first .zt2 given; each
// conversion gets a fresh instance, since a fault stops an instance for good.
let converterModule;
function converter() {
  if (converterModule === undefined) {
    const gzipped = embeddedBytes('converter');
    if (gzipped && typeof DecompressionStream === 'undefined') {
      converterModule = Promise.reject(new Error('this browser cannot unpack the converter (no DecompressionStream)'));
    } else {
      converterModule = gzipped && new Response(new Blob([gzipped]).stream().pipeThrough(new DecompressionStream('gzip')))
        .arrayBuffer().then((wasm) => WebAssembly.compile(wasm));
    }
  }
  return converterModule;
}

// What the module asks of its system (see the imports of
// tools/zt2view/wasm/): no environment, no files; what it prints goes to the
// console, and it never exits.
function systemImports(memory) {
  const words = () => new DataView(memory().buffer);
  const badFile = 8;
  return {
    environ_sizes_get(count, size) {
      words().setUint32(count, 0, true);
      words().setUint32(size, 0, true);
      return 0;
    },
    environ_get: () => 0,
    fd_write(fd, iovs, count, written) {
      const w = words();
      let text = '', total = 0;
      for (let i = 0; i < count; ++i) {
        const start = w.getUint32(iovs + 8 * i, true), length = w.getUint32(iovs + 8 * i + 4, true);
        text += new TextDecoder().decode(new Uint8Array(memory().buffer, start, length));
        total += length;
      }
      console.log(text);
      w.setUint32(written, total, true);
      return 0;
    },
    fd_seek: () => badFile,
    fd_close: () => badFile,
    proc_exit(code) {
      throw new Error(`the converter exited with ${code}`);
    },
  };
}

// The .glb of the scene file `scene` with the files given beside it (its
// .skd, images), and the converter's warnings; throws an Error naming the
// file and the reader's cause.
async function convert(scene, files) {
  const contents = await Promise.all(files.map(async (f) => [f.name, new Uint8Array(await f.arrayBuffer())]));
  let memory, x;
  const put = (bytes) => {
    const p = x.ztx_alloc(bytes.length);
    new Uint8Array(memory.buffer, p, bytes.length).set(bytes);
    return p;
  };
  const text = (p) => {
    const m = new Uint8Array(memory.buffer);
    let end = p;
    while (m[end] !== 0) ++end;
    return new TextDecoder().decode(m.subarray(p, end));
  };
  const encoder = new TextEncoder();
  try {
    const instance = await WebAssembly.instantiate(await converter(), {
      wasi_snapshot_preview1: systemImports(() => memory),
    });
    memory = instance.exports.memory;
    x = instance.exports;
    x._initialize();
    for (const [name, bytes] of contents) {
      const n = encoder.encode(name);
      x.ztx_add_file(put(n), n.length, put(bytes), bytes.length);
    }
    const n = encoder.encode(scene.name);
    const glb = x.ztx_convert(put(n), n.length);
    return {
      glb: new Uint8Array(memory.buffer, glb, x.ztx_glb_size()).slice(),
      warnings: text(x.ztx_warnings()).split('\n').filter(Boolean),
    };
  } catch (e) {
    // A fault of the reader or the converter keeps its message and traps
    // (host/inhouse/exceptions.h); a trap without one is the runtime's own.
    const fault = x ? text(x.ztx_fault()) : '';
    if (!fault) throw new Error(`${scene.name}: the converter stopped: ${e.message}`);
    // The reader's messages start with the file they are about.
    throw new Error(files.some((f) => fault.startsWith(`${f.name}: `)) ? fault : `${scene.name}: ${fault}`);
  }
}

function showMessage(text, isError) {
  const message = document.getElementById('message');
  message.textContent = text;
  message.className = isError ? 'error' : '';
  message.hidden = !text;
}

// Everything of the page that outlives a scene: the renderer, the camera and
// its controls, the lights, the player's and the options' controls. show()
// puts a scene into it, the embedded one first, then each one given.
function makeViewer() {
  const view = document.getElementById('view');
  const renderer = new THREE.WebGLRenderer({ antialias: true, preserveDrawingBuffer: true });
  renderer.setPixelRatio(window.devicePixelRatio);
  view.append(renderer.domElement);
  const scene = new THREE.Scene();
  // The file's lights are kept, but a preview must show every mesh lit
  // whatever they are, so a sky light and a light at the eye come with it.
  scene.add(new THREE.HemisphereLight(0xffffff, 0x444455, 1.6));
  const camera = new THREE.PerspectiveCamera(45, 1, 0.01, 1000);
  const eyeLight = new THREE.DirectionalLight(0xffffff, 1.6);
  camera.add(eyeLight);
  scene.add(camera);
  const controls = new OrbitControls(camera, renderer.domElement);

  // The scene shown: its loader result, its own objects in the view, its player.
  let shown = null;
  let viewCamera = camera;
  let playing = false;
  const colourBox = document.getElementById('vertex-colours');
  const wireBox = document.getElementById('wireframe');
  const cameraSelect = document.getElementById('view-camera');
  const slider = document.getElementById('scrub');
  const playButton = document.getElementById('play');
  const timeText = document.getElementById('time');

  const resize = () => {
    const w = view.clientWidth, h = view.clientHeight;
    renderer.setSize(w, h);
    for (const c of [camera, ...(shown ? shown.gltf.cameras : [])]) {
      c.aspect = w / h;
      c.updateProjectionMatrix();
    }
  };
  colourBox.addEventListener('change', () => {
    if (!shown) return;
    for (const m of shown.coloured) {
      m.vertexColors = colourBox.checked;
      m.needsUpdate = true;
    }
  });
  wireBox.addEventListener('change', () => {
    if (!shown) return;
    shown.gltf.scene.traverse((o) => {
      if (!o.isMesh) return;
      for (const m of Array.isArray(o.material) ? o.material : [o.material]) m.wireframe = wireBox.checked;
    });
  });
  document.getElementById('panel').addEventListener('click', () => {
    document.body.classList.toggle('collapsed');
    resize();
  });
  cameraSelect.addEventListener('change', () => {
    if (!shown) return;
    viewCamera = cameraSelect.value === '' ? camera : shown.gltf.cameras[Number(cameraSelect.value)];
    controls.enabled = viewCamera === camera;
    resize();
  });
  document.getElementById('frame').addEventListener('click', () => {
    if (!shown) return;
    cameraSelect.value = '';
    viewCamera = camera;
    controls.enabled = true;
    frame(camera, controls, shown.gltf.scene);
  });
  // Any time, so that a sample's own time can be reached (a fixed step would
  // land between samples).
  slider.step = 'any';
  const setTime = (t) => {
    if (shown.action) {
      // Reaching the end pauses an action held there; any time set moves it again.
      shown.action.paused = false;
      shown.action.enabled = true;
    }
    shown.mixer.setTime(t);
    slider.value = String(t);
    timeText.textContent = `${t.toFixed(2)} s / ${shown.duration.toFixed(2)} s`;
  };
  playButton.addEventListener('click', () => {
    playing = !playing;
    playButton.textContent = playing ? 'Pause' : 'Play';
  });
  slider.addEventListener('input', () => {
    playing = false;
    playButton.textContent = 'Play';
    setTime(Number(slider.value));
  });
  window.addEventListener('resize', resize);
  const clock = new THREE.Clock();
  renderer.setAnimationLoop(() => {
    const dt = clock.getDelta();
    if (playing && shown && shown.clip) setTime((shown.mixer.time + dt) % shown.duration);
    controls.update();
    renderer.render(scene, viewCamera);
  });

  // The previous scene's objects leave the view and give back their GPU memory.
  const forget = () => {
    if (!shown) return;
    shown.mixer.stopAllAction();
    for (const o of [shown.gltf.scene, shown.grid]) {
      scene.remove(o);
      o.traverse((m) => {
        if (m.geometry) m.geometry.dispose();
        for (const material of Array.isArray(m.material) ? m.material : m.material ? [m.material] : []) {
          for (const value of Object.values(material)) if (value && value.isTexture) value.dispose();
          material.dispose();
        }
      });
    }
    for (const id of ['node-tree', 'meshes', 'materials']) document.getElementById(id).replaceChildren();
    cameraSelect.replaceChildren(el('option', { value: '', textContent: 'Orbit' }));
  };

  // Shows the .glb `bytes` in place of the scene shown, under the name
  // `title`; throws, the shown scene kept, when three.js cannot read it.
  return async function show(bytes, title) {
    const gltf = await new GLTFLoader().parseAsync(bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength), '');
    const json = gltf.parser.json;
    // glTF node index -> the object the loader made of it (names are not
    // unique once the loader has cleaned them). The loader's node cache, not its
    // associations: two nodes sharing a mesh share one association record, and
    // the second node's index overwrites the first's.
    const nodeObjects = await Promise.all((json.nodes || []).map((_, i) => gltf.parser.getDependency('node', i)));
    forget();
    document.title = `${title} - zt2view`;
    document.getElementById('title').textContent = title;
    fillNodeTree(json);
    fillMeshes(json);
    fillMaterials(json);
    const env = (json.scenes && json.scenes[0] && json.scenes[0].extras) || {};
    const bg = env.backgroundColour ? env.backgroundColour.map((v) => v / 255) : [0.2, 0.3, 0.45];
    scene.background = new THREE.Color(bg[0], bg[1], bg[2]);
    scene.add(gltf.scene);

    // The file keeps two of a vertex colour's three components, so vertex
    // colours are shown only on request; the materials' colours come first.
    const coloured = [];
    gltf.scene.traverse((o) => {
      if (o.isMesh && o.material && o.material.vertexColors) {
        coloured.push(o.material);
        o.material.vertexColors = false;
        o.material.needsUpdate = true;
      }
    });
    colourBox.checked = false;
    colourBox.disabled = coloured.length === 0;
    wireBox.checked = false;
    shown = { gltf, coloured };
    resize();
    const { size, box } = frame(camera, controls, gltf.scene);
    // A ground grid under the meshes, centred below them, in cells of a round
    // size, a little larger than their footprint and no larger: lines that
    // reach behind the eye are dropped whole by some renderers.
    const footprint = Math.max(box.max.x - box.min.x, box.max.z - box.min.z, size / 4);
    const cell = 10 ** Math.floor(Math.log10(footprint / 4));
    const divisions = 2 * Math.ceil((footprint * 0.65) / cell);
    const gridSize = divisions * cell;
    const grid = new THREE.GridHelper(gridSize, divisions, 0x9aa4b4, 0x66707e);
    grid.position.set((box.min.x + box.max.x) / 2, box.min.y, (box.min.z + box.max.z) / 2);
    scene.add(grid);
    shown.grid = grid;
    // The scene's cameras, to look through as the engine would.
    viewCamera = camera;
    controls.enabled = true;
    gltf.cameras.forEach((c, i) => {
      let named = c;
      while (named.parent && !named.name) named = named.parent;
      cameraSelect.append(el('option', { value: String(i), textContent: named.name || `Camera ${i + 1}` }));
    });
    cameraSelect.disabled = gltf.cameras.length === 0;
    // Nodes without geometry show as small axes, so that helpers and bones can
    // be found: a fortieth of the scene's size whatever the node's own scale.
    const axes = [];
    gltf.scene.traverse((o) => {
      if (!o.isMesh && !o.isSkinnedMesh && o.userData && o.userData.type && o.userData.type !== 'mesh') axes.push(o);
    });
    for (const o of axes) {
      const helper = new THREE.AxesHelper(1);
      const scale = o.getWorldScale(new THREE.Vector3());
      helper.scale.set(...scale.toArray().map((v) => (Math.abs(v) > 1e-9 ? size / 40 / v : 1)));
      o.add(helper);
    }

    const mixer = new THREE.AnimationMixer(gltf.scene);
    const clip = gltf.animations[0];
    const action = clip ? mixer.clipAction(clip) : null;
    const duration = clip ? clip.duration : 0;
    Object.assign(shown, { mixer, clip, action, duration });
    // Once, held at the end: a repeating action wraps its last time round to
    // the first pose, so scrubbing to the end would show the start. The page's
    // own clock does the looping.
    if (action) {
      action.setLoop(THREE.LoopOnce, 1);
      action.clampWhenFinished = true;
      action.play();
    }
    slider.max = String(duration);
    playing = false;
    playButton.textContent = 'Play';
    playButton.disabled = !clip;
    slider.disabled = !clip;
    if (!clip) timeText.textContent = 'No animation in the file.';
    else setTime(0);

    const objectOfNode = new Map(nodeObjects.map((o, i) => [i, o]));
    // For the page's tests: where a node stands in the world now, and its
    // world scale (0 while the file's visibility hides it).
    const worldObject = (name) => {
      const o = objectOfNode.get((json.nodes || []).findIndex((n) => n.name === name));
      if (o) o.updateWorldMatrix(true, false);
      return o;
    };
    window.zt2view = {
      nodeNames: (json.nodes || []).map((n) => n.name),
      duration,
      // Where the grid lies against the meshes, and the view's share of the window.
      layout() {
        return { gridY: grid.position.y, meshBottom: box.min.y, viewWidth: view.clientWidth, pageWidth: window.innerWidth,
          cameras: gltf.cameras.length };
      },
      worldPosition(name) {
        const o = worldObject(name);
        return o ? o.getWorldPosition(new THREE.Vector3()).toArray() : null;
      },
      worldScale(name) {
        const o = worldObject(name);
        return o ? o.getWorldScale(new THREE.Vector3()).toArray() : null;
      },
      // The mean of a node's mesh vertices in the world as drawn now, skinned
      // ones where their joints put them.
      meshCentre(name) {
        const o = worldObject(name);
        if (!o) return null;
        const sum = new THREE.Vector3();
        const v = new THREE.Vector3();
        let count = 0;
        o.updateMatrixWorld(true);
        o.traverse((m) => {
          if (!m.isMesh || (m !== o && m.parent !== o)) return;
          if (m.isSkinnedMesh) m.skeleton.update();
          const n = m.geometry.attributes.position.count;
          for (let i = 0; i < n; ++i) {
            m.getVertexPosition(i, v);
            sum.add(v.applyMatrix4(m.matrixWorld));
          }
          count += n;
        });
        return count > 0 ? sum.divideScalar(count).toArray() : null;
      },
    };
  };
}

// Files dropped or opened together: one scene (a .zt2, with its .skd and
// images among them, or a .glb) replaces the one shown; what goes wrong is
// shown in the page, naming the file, and the scene shown stays.
async function openFiles(show, files) {
  const scenes = files.filter((f) => /\.(zt2|glb)$/i.test(f.name));
  if (scenes.length !== 1) {
    const names = files.map((f) => f.name).join(', ');
    throw new Error(scenes.length === 0 ? `${names}: no .zt2 or .glb among them` : `${names}: one scene at a time, please`);
  }
  const [scene] = scenes;
  let glb = null, warnings = [];
  if (/\.glb$/i.test(scene.name)) {
    glb = new Uint8Array(await scene.arrayBuffer());
  } else {
    if (!converter()) throw new Error(`${scene.name}: this page was made without the converter: it shows dropped .glb files only`);
    ({ glb, warnings } = await convert(scene, files));
  }
  try {
    await show(glb, scene.name);
  } catch (e) {
    throw new Error(`${scene.name}: cannot show the scene: ${e.message}`);
  }
  // As zt2view prints them.
  showMessage(warnings.map((w) => `${scene.name}: warning: ${w}`).join('\n'), false);
}

// The whole page takes dropped files; the hint shows while some are dragged
// over it. The "Open…" button does the same for the keyboard.
function acceptFiles(show) {
  const hint = document.getElementById('drop-hint');
  hint.textContent = document.getElementById('converter') ? 'Drop a .zt2 (with its .skd and images) or a .glb to show it'
    : 'Drop a .glb to show it (this page was made without the converter of .zt2 files)';
  let queue = Promise.resolve();
  let handled = 0;
  const take = (files) => {
    showMessage('', false);
    queue = queue.then(() => openFiles(show, files)).catch((e) => showMessage(e.message, true)).then(() => {
      // For the page's tests: how many drops or openings are done with.
      document.body.dataset.handled = String(++handled);
    });
  };
  let depth = 0;
  window.addEventListener('dragenter', (e) => {
    e.preventDefault();
    ++depth;
    document.body.classList.add('dragging');
  });
  window.addEventListener('dragleave', () => {
    if (--depth <= 0) {
      depth = 0;
      document.body.classList.remove('dragging');
    }
  });
  window.addEventListener('dragover', (e) => e.preventDefault());
  window.addEventListener('drop', (e) => {
    e.preventDefault();
    depth = 0;
    document.body.classList.remove('dragging');
    if (e.dataTransfer && e.dataTransfer.files.length > 0) take([...e.dataTransfer.files]);
  });
  const input = document.getElementById('open');
  document.getElementById('open-button').addEventListener('click', () => input.click());
  input.addEventListener('change', () => {
    if (input.files.length > 0) take([...input.files]);
    input.value = '';
  });
  document.getElementById('message').addEventListener('click', () => showMessage('', false));
}

async function main() {
  // A narrow window gives the view the room; the panel opens on request.
  if (window.innerWidth < 1000) document.body.classList.add('collapsed');
  const show = makeViewer();
  await show(embeddedBytes('scene-data'), document.getElementById('title').textContent);
  acceptFiles(show);
  document.body.dataset.ready = 'true';
}

main().catch((e) => {
  document.getElementById('time').textContent = `Cannot show the scene: ${e.message}`;
  console.error(e);
});
