// The remote's page: everything a phone client offers, over one encrypted connection to the
// computer that served it. Whatever the computer lists as unsupported ("un") is hidden.
import { Connection } from './protocol.mjs';
import { focusLabel, t, translatePage } from './i18n.mjs';
import { shortcuts, textToSequences } from './keys.mjs';

const $ = (id) => document.getElementById(id);
const ratio = Math.min(Math.ceil(globalThis.devicePixelRatio || 1), 3);
const iconSize = 36 * ratio;

const state = {
  apps: [],
  front: '',
  unsupported: new Set(),
  appIcons: new Map(), // id -> object URL
  asked: new Set(), // icons asked for, by kind and key
  fileIcons: new Map(),
  commandIcons: new Map(),
  commandSets: new Map(), // app id -> command set
  site: null,
  path: '',
  sheetPath: '',
  tab: 'apps',
  expanded: '',
};

const connection = new Connection(`ws://${location.host}/`, localStorage);

function send(object) {
  connection.send(object);
}

function el(tag, properties = {}, children = []) {
  const element = document.createElement(tag);
  for (const [key, value] of Object.entries(properties)) {
    if (key === 'dataset') Object.assign(element.dataset, value);
    else if (key === 'text') element.textContent = value;
    else if (key in element) element[key] = value;
    else element.setAttribute(key, value);
  }
  for (const child of children) if (child) element.append(child);
  return element;
}

function imageUrl(part) {
  if (!part || part.data.length === 0) return '';
  return URL.createObjectURL(new Blob([part.data], { type: 'image/png' }));
}

function appName(id) {
  return state.apps.find((app) => app.i === id)?.n ?? id;
}

function supported(code) {
  return !state.unsupported.has(code);
}

// ---- connection and pairing ------------------------------------------------------------------

const pairingTexts = {
  connecting: 'connecting', waiting: 'waiting', refused: 'refused', offline: 'offline', proving: 'proving',
};

connection.addEventListener('state', ({ detail }) => {
  document.body.dataset.state = detail;
  const ready = detail === 'ready';
  $('main').hidden = !ready;
  $('pairing').hidden = ready;
  $('pairing-hint').hidden = detail !== 'waiting';
  $('pair-again').hidden = detail !== 'refused';
  if (!ready) $('pairing-text').textContent = t(pairingTexts[detail]);
  if (ready) {
    for (const code of ['un', 'ia', 'ca', 'v', 'vm', 'b', 'lock']) send({ _: code });
    if (state.tab === 'files') list(state.path);
  }
});

connection.addEventListener('message', ({ detail: frame }) => {
  const handler = handlers[frame.method];
  if (handler) handler(frame.object, frame.parts);
});

const handlers = {
  un(object) {
    state.unsupported = new Set(Array.isArray(object.v) ? object.v : []);
    for (const element of document.querySelectorAll('[data-code]'))
      element.hidden = !supported(element.dataset.code);
    renderApps();
    renderCommands();
  },
  ia(object) {
    state.apps = Array.isArray(object.apps) ? object.apps : [];
    renderApps();
  },
  ca(object) {
    state.front = typeof object.i === 'string' ? object.i : '';
    renderApps();
    renderFront();
    if (state.front && supported('ac') && !state.commandSets.has(state.front))
      send({ _: 'ac', i: state.front });
    if (state.tab === 'menu') askMenu();
  },
  ai(object, parts) {
    const url = imageUrl(parts[0]);
    if (!url) return;
    state.appIcons.set(object.i, url);
    for (const img of document.querySelectorAll('img[data-app-icon]'))
      if (img.dataset.appIcon === object.i) img.src = url;
  },
  v(object) {
    setLevel('volume', object.v);
  },
  b(object) {
    setLevel('brightness', object.v);
  },
  vm(object) {
    $('mute').checked = object.v === true;
  },
  lock(object) {
    $('lock-state').textContent = object.v === true ? t('locked') : '';
  },
  fe(object) {
    if ('r' in object) $('focus-label').textContent = focusLabel(object.r, object.n);
    if (typeof object.v === 'string' && document.activeElement !== $('focus-value'))
      $('focus-value').value = object.v;
  },
  am(object, parts) {
    if (object.i !== state.front || !parts[0]) return;
    let tree = [];
    try {
      tree = JSON.parse(new TextDecoder().decode(parts[0].data));
    } catch {}
    renderMenu(Array.isArray(tree) ? tree : []);
  },
  ac(object, parts) {
    let set = {};
    try {
      set = JSON.parse(new TextDecoder().decode(parts[0]?.data ?? new Uint8Array()));
    } catch {}
    state.commandSets.set(object.i, set && typeof set === 'object' ? set : {});
    renderCommands();
  },
  sc(object) {
    // Only "i" means the browser's page has no commands.
    state.site = Object.keys(object).some((key) => key !== 'i' && key !== '_') ? object : null;
    renderCommands();
  },
  ci(object, parts) {
    const url = imageUrl(parts[0]);
    if (!url) return;
    state.commandIcons.set(object.i, url);
    for (const img of document.querySelectorAll('img[data-command-icon]'))
      if (img.dataset.commandIcon === object.i) img.src = url;
  },
  dl(object) {
    renderFiles(object);
  },
  fi(object, parts) {
    const url = imageUrl(parts[0]);
    if (!url || typeof object.p !== 'string') return;
    state.fileIcons.set(object.p, url);
    for (const img of document.querySelectorAll('img[data-file-icon]'))
      if (img.dataset.fileIcon === object.p) img.src = url;
  },
  fp(object, parts) {
    if (object.p !== state.sheetPath) return;
    const holder = $('sheet-preview');
    if (!holder) return;
    const url = imageUrl(parts[0]);
    holder.replaceChildren(
      url ? el('img', { className: 'preview', src: url, alt: '' }) : el('p', { className: 'hint', text: t('noPreview') }),
    );
  },
  fia(object) {
    if (object.p !== state.sheetPath) return;
    const holder = $('sheet-apps');
    if (!holder) return;
    const apps = Array.isArray(object.apps) ? object.apps : [];
    holder.replaceChildren(
      ...(apps.length
        ? apps.map((app) =>
            el('button', {
              text: appName(app.i),
              dataset: { openWith: app.i },
              onclick: () => {
                send({ _: 'fo', p: object.p, i: app.i });
                closeSheet();
              },
            }),
          )
        : [el('p', { className: 'hint', text: t('noApps') })]),
    );
  },
};

// ---- applications ----------------------------------------------------------------------------

function askIcon(kind, key, request) {
  const tag = `${kind}:${key}`;
  if (state.asked.has(tag)) return;
  state.asked.add(tag);
  send(request);
}

function appIcon(id, className = 'app-icon') {
  const img = el('img', { className, alt: '', dataset: { appIcon: id } });
  if (state.appIcons.has(id)) img.src = state.appIcons.get(id);
  else if (supported('ai')) askIcon('ai', id, { _: 'ai', i: id, s: iconSize });
  return img;
}

function actionButtons(id) {
  const codes = [['ha', 'close'], ['qa', 'quit'], ['ma', 'minimize'], ['xa', 'maximize'], ['fa', 'fullScreen']];
  return el(
    'div',
    { className: 'buttons app-actions' },
    codes
      .filter(([code]) => supported(code))
      .map(([code, label]) =>
        el('button', { text: t(label), dataset: { action: code }, onclick: () => send({ _: code, i: id }) }),
      ),
  );
}

function renderApps() {
  const list = $('apps');
  list.replaceChildren(
    ...state.apps.map((app) => {
      const front = app.i === state.front;
      const row = el('li', { dataset: { app: app.i }, className: front ? 'front' : '' });
      const main = el(
        'button',
        {
          className: 'row',
          dataset: { activate: app.i },
          onclick: () => send({ _: 'aa', i: app.i }),
        },
        [
          appIcon(app.i),
          el('span', { className: `name${app.s === 'r' ? ' running' : ''}`, text: app.n }),
          front ? el('span', { className: 'badge', text: t('front') }) : null,
        ],
      );
      const more = el('button', {
        className: 'more',
        text: '⋯',
        'aria-label': t('actions', app.n),
        'aria-expanded': String(state.expanded === app.i),
        onclick: () => {
          state.expanded = state.expanded === app.i ? '' : app.i;
          renderApps();
        },
      });
      row.replaceChildren(el('div', { className: 'row-line' }, [main, more]));
      if (state.expanded === app.i) row.append(actionButtons(app.i));
      return row;
    }),
  );
}

function renderFront() {
  $('front-title').textContent = state.front ? appName(state.front) : t('noFront');
  $('front-name').textContent = state.front ? appName(state.front) : '';
  const icon = $('front-icon');
  icon.dataset.appIcon = state.front;
  icon.hidden = !state.front;
  if (state.front) {
    if (state.appIcons.has(state.front)) icon.src = state.appIcons.get(state.front);
    else if (supported('ai')) askIcon('ai', state.front, { _: 'ai', i: state.front, s: iconSize });
  }
  for (const button of $('front-actions').querySelectorAll('button')) button.disabled = !state.front;
  $('type-send').disabled = !state.front;
  for (const button of $('shortcuts').querySelectorAll('button')) button.disabled = !state.front;
  renderCommands();
}

// ---- control ---------------------------------------------------------------------------------

for (const button of $('front-actions').querySelectorAll('button[data-action]'))
  button.addEventListener('click', () => send({ _: button.dataset.action, i: state.front }));

// One wheel step per message: 10 and above scrolls up, below 10 down.
function scrollStep(up) {
  send({ _: 'as', x: 0, y: up ? 20 : -20 });
}
$('scroll-up').addEventListener('click', () => scrollStep(true));
$('scroll-down').addEventListener('click', () => scrollStep(false));
{
  const pad = $('scroll-pad');
  let last = null;
  pad.addEventListener('pointerdown', (event) => {
    last = event.clientY;
    pad.setPointerCapture(event.pointerId);
  });
  pad.addEventListener('pointermove', (event) => {
    if (last === null) return;
    // The content follows the finger, as on the phone itself: a finger moving down scrolls up.
    while (Math.abs(event.clientY - last) >= 24) {
      const fingerDown = event.clientY > last;
      scrollStep(fingerDown);
      last += fingerDown ? 24 : -24;
    }
  });
  const end = () => {
    last = null;
  };
  pad.addEventListener('pointerup', end);
  pad.addEventListener('pointercancel', end);
}

function typeSequences(sequences) {
  if (state.front && sequences.length) send({ _: 'ks', i: state.front, k: sequences });
}
$('type-send').addEventListener('click', () => {
  typeSequences(textToSequences($('type-text').value));
  $('type-text').value = '';
});
$('type-text').addEventListener('keydown', (event) => {
  if (event.key === 'Enter') {
    event.preventDefault();
    $('type-send').click();
  }
});
$('shortcuts').replaceChildren(
  ...shortcuts.map(([label, keys]) =>
    el('button', { text: label, dataset: { keys }, onclick: () => typeSequences([keys]) }),
  ),
);

$('focus-read').addEventListener('click', () => send({ _: 'fv', i: '' }));
$('focus-set').addEventListener('click', () => send({ _: 'fv', i: '', v: $('focus-value').value }));
$('focus-press').addEventListener('click', () => send({ _: 'pf', i: '' }));

// Command sets and site documents list their commands under "c": a name ("n"), the keys to
// type ("k", one sequence or several) and optionally an icon ("i").
function commandButtons(set) {
  const commands = Array.isArray(set?.c) ? set.c : [];
  return commands
    .filter((command) => command && typeof command.n === 'string' && command.k !== undefined)
    .map((command) => {
      const children = [];
      if (typeof command.i === 'string' && command.i) {
        const img = el('img', { alt: '', dataset: { commandIcon: command.i } });
        if (state.commandIcons.has(command.i)) img.src = state.commandIcons.get(command.i);
        else askIcon('ci', command.i, { _: 'ci', i: command.i, s: 20 * ratio });
        children.push(img);
      }
      children.push(document.createTextNode(command.n));
      return el(
        'button',
        {
          dataset: { command: command.n },
          onclick: () => typeSequences(Array.isArray(command.k) ? command.k.map(String) : [String(command.k)]),
        },
        children,
      );
    });
}

function renderCommands() {
  const own = commandButtons(state.commandSets.get(state.front));
  const site = state.site && state.site.i === state.front ? commandButtons(state.site) : [];
  $('commands').replaceChildren(...own);
  $('site-commands').replaceChildren(...site);
  const title = $('site-title');
  title.hidden = site.length === 0;
  title.textContent = typeof state.site?.n === 'string' ? state.site.n : '';
  $('commands-card').hidden = !supported('ac') || own.length + site.length === 0;
}

// ---- menus -----------------------------------------------------------------------------------

function askMenu() {
  if (state.front && supported('am')) send({ _: 'am', i: state.front });
  else renderMenu([]);
}

function menuNode(item, path) {
  const name = typeof item?.n === 'string' ? item.n : '';
  const label = path ? `${path} › ${name}` : name;
  if (Array.isArray(item?.m) && item.m.length) {
    return el('details', { dataset: { menu: label } }, [
      el('summary', { text: name }),
      ...item.m.map((child) => menuNode(child, label)),
    ]);
  }
  return el('button', {
    className: 'leaf',
    text: name,
    dataset: { menu: label },
    onclick: () => send({ _: 'pm', i: state.front, m: String(item.i) }),
  });
}

function renderMenu(tree) {
  $('menu-tree').replaceChildren(...tree.map((item) => menuNode(item, '')));
  $('menu-empty').hidden = tree.length > 0;
}
$('menu-refresh').addEventListener('click', askMenu);

// ---- files -----------------------------------------------------------------------------------

function joinPath(folder, name) {
  return folder.endsWith('/') ? folder + name : `${folder}/${name}`;
}

function list(path) {
  send({ _: 'dl', p: path });
}

const iconObserver = new IntersectionObserver((entries) => {
  for (const entry of entries) {
    if (!entry.isIntersecting) continue;
    const path = entry.target.dataset.fileIcon;
    iconObserver.unobserve(entry.target);
    if (state.fileIcons.has(path)) entry.target.src = state.fileIcons.get(path);
    else if (supported('fi')) askIcon('fi', path, { _: 'fi', p: path, s: iconSize });
  }
});

function renderFiles(listing) {
  state.path = typeof listing.p === 'string' ? listing.p : '';
  $('files-path').textContent = state.path;
  $('files-up').disabled = state.path === '/' || state.path === '';
  const files = Array.isArray(listing.files) ? listing.files : [];
  iconObserver.disconnect();
  $('files').replaceChildren(
    ...files.map((file) => {
      const path = joinPath(state.path, String(file.n));
      const folder = file.t === 'd';
      const img = el('img', { className: 'file-icon', alt: '', dataset: { fileIcon: path } });
      iconObserver.observe(img);
      return el('li', { dataset: { file: file.n } }, [
        el(
          'button',
          { className: 'row', onclick: () => (folder ? list(path) : openSheet(path, String(file.n))) },
          [img, el('span', { className: 'name', text: file.n }), folder ? el('span', { text: '›' }) : null],
        ),
      ]);
    }),
  );
  $('files-empty').hidden = files.length > 0;
}

$('files-up').addEventListener('click', () => {
  const parent = state.path.replace(/\/[^/]*$/, '') || '/';
  list(parent);
});

function openSheet(path, name) {
  state.sheetPath = path;
  $('sheet-title').textContent = name;
  const content = [
    el('div', { id: 'sheet-preview' }),
    el('div', { className: 'buttons' }, [
      supported('fo')
        ? el('button', { className: 'primary', id: 'sheet-open', text: t('open'), onclick: () => { send({ _: 'fo', p: path, i: '' }); closeSheet(); } })
        : null,
    ]),
  ];
  if (supported('fia')) content.push(el('h2', { text: t('openWith') }), el('div', { id: 'sheet-apps', className: 'buttons' }));
  $('sheet-content').replaceChildren(...content);
  $('sheet').hidden = false;
  if (supported('fp')) send({ _: 'fp', p: path, w: 320 * ratio, h: 240 * ratio });
  if (supported('fia')) send({ _: 'fia', p: path });
}

function closeSheet() {
  state.sheetPath = '';
  $('sheet').hidden = true;
}
$('sheet-close').addEventListener('click', closeSheet);
$('sheet').addEventListener('click', (event) => {
  if (event.target === $('sheet')) closeSheet();
});

// ---- system ----------------------------------------------------------------------------------

function setLevel(name, value) {
  const input = $(name);
  if (typeof value !== 'number' || input.dataset.dragging === 'true') return;
  input.value = String(value);
  $(`${name}-value`).textContent = String(value);
}

for (const [name, code] of [['volume', 'v'], ['brightness', 'b']]) {
  const input = $(name);
  let timer = 0;
  const apply = () => send({ _: code, v: Number(input.value) });
  input.addEventListener('input', () => {
    input.dataset.dragging = 'true';
    $(`${name}-value`).textContent = input.value;
    clearTimeout(timer);
    // While the thumb moves, a few updates a second rather than one per pixel.
    timer = setTimeout(apply, 120);
  });
  input.addEventListener('change', () => {
    clearTimeout(timer);
    input.dataset.dragging = 'false';
    apply();
  });
}
$('mute').addEventListener('change', () => send({ _: 'vm', v: $('mute').checked }));
for (const button of document.querySelectorAll('[data-send]'))
  button.addEventListener('click', () => send({ _: button.dataset.send }));

const confirmTexts = {
  lock: 'confirmLock', sleep: 'confirmSleep', restart: 'confirmRestart',
  shutdown: 'confirmShutdown', logout: 'confirmLogout',
};
function confirmThen(text, label, action) {
  const dialog = $('confirm');
  $('confirm-text').textContent = text;
  $('confirm-ok').textContent = label;
  $('confirm-ok').onclick = () => {
    dialog.close();
    action();
  };
  dialog.showModal();
}
$('confirm-cancel').addEventListener('click', () => $('confirm').close());
for (const button of document.querySelectorAll('[data-confirm]')) {
  const code = button.dataset.confirm;
  button.addEventListener('click', () =>
    confirmThen(t(confirmTexts[code]), t(code), () => send(code === 'lock' ? { _: 'lock', v: true } : { _: code })),
  );
}
$('forget').addEventListener('click', () =>
  confirmThen(t('confirmForget'), t('forget'), () => {
    localStorage.removeItem('velm.token');
    connection.reopen();
  }),
);

// ---- tabs ------------------------------------------------------------------------------------

function showTab(name) {
  state.tab = name;
  for (const tab of document.querySelectorAll('[role="tab"]'))
    tab.setAttribute('aria-selected', String(tab.dataset.tab === name));
  for (const panel of document.querySelectorAll('[data-panel]')) panel.hidden = panel.dataset.panel !== name;
  if (name === 'menu') askMenu();
  if (name === 'files' && !$('files').childElementCount) list(state.path);
  window.scrollTo(0, 0);
}
for (const tab of document.querySelectorAll('[role="tab"]'))
  tab.addEventListener('click', () => showTab(tab.dataset.tab));

$('pair-again').addEventListener('click', () => connection.reopen());

translatePage(document);
renderFront();
connection.open();
