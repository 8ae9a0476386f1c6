// The device console: draws any tree from its schema and values, writes one value per change,
// and follows the tree's changes through an event stream while a view is open.
'use strict';

const STREAM_INTERVAL_MS = 500;
const RECONNECT_DELAY_MS = 2000;
const VIEW_DEPTH = 3;
const pageSize = Number(new URLSearchParams(location.search).get('pageSize')) || 20;

let config = null;
let credentials = sessionStorage.getItem('dme-credentials');
let stream = null;
let shownUri = null;

const byId = (id) => document.getElementById(id);

// An element with attributes (a property when the element has one, else an attribute) and
// children (nodes or texts).
function element(tag, attributes = {}, ...children) {
  const node = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === undefined || value === null || value === false) continue;
    if (name in node && !name.startsWith('data')) node[name] = value;
    else node.setAttribute(name, value === true ? '' : value);
  }
  node.append(...children.filter((child) => child !== null && child !== undefined));
  return node;
}

// ---- talking to the device ----

function encodePath(uri) {
  return uri.split('/').map(encodeURIComponent).join('/');
}

function decodePath(href) {
  return href.split('/').map(decodeURIComponent).join('/');
}

function childUri(uri, name) {
  return (uri === '/' ? '' : uri) + '/' + name;
}

function encodeCredentials(user, password) {
  const bytes = new TextEncoder().encode(user + ':' + password);
  return btoa(String.fromCharCode(...bytes));
}

function requestHeaders(extra = {}) {
  const headers = { 'X-Requested-With': 'XMLHttpRequest', ...extra };
  if (credentials) headers.Authorization = 'Basic ' + credentials;
  return headers;
}

// Sends `method` to `uri` below `area` (the tree, its schema) and returns the status, the JSON
// answer (or null) and the headers.
async function call(method, uri, { body, query = '', area = '' } = {}) {
  const headers = requestHeaders({ Accept: 'application/json' });
  const init = { method, headers };
  if (body !== undefined) {
    headers['Content-Type'] = 'application/json';
    init.body = JSON.stringify(body);
  }
  const response = await fetch(config.api + area + encodePath(uri) + query, init);
  const text = await response.text();
  let data = null;
  try {
    data = text ? JSON.parse(text) : null;
  } catch (error) {
    data = text;
  }
  return { status: response.status, ok: response.ok, data, headers: response.headers };
}

function messageOf(answer) {
  const error = answer.data && answer.data.error;
  if (!error) return 'Failed: ' + answer.status;
  const details = (error.details || []).filter((detail) => detail !== '').join(', ');
  return details ? `${error.message} (${details})` : error.message;
}

// The methods that the logged-in user may use on `uri`, from the server's Allow.
async function allowedMethods(uri) {
  const response = await fetch(config.api + encodePath(uri), {
    method: 'OPTIONS',
    headers: requestHeaders(),
  });
  const allow = response.headers.get('Allow') || '';
  return new Set(allow.split(',').map((method) => method.trim()).filter(Boolean));
}

function query(pairs) {
  const text = Object.entries(pairs)
    .filter(([name, value]) => name && value !== undefined)
    .map(([name, value]) => `${encodeURIComponent(name)}=${encodeURIComponent(value)}`)
    .join('&');
  return text ? '?' + text : '';
}

// ---- logging in ----

async function logIn(event) {
  event.preventDefault();
  credentials = encodeCredentials(byId('login-user').value, byId('login-password').value);
  const answer = await call('GET', '/');
  if (!answer.ok) {
    credentials = null;
    byId('login-error').textContent =
      answer.status === 401 ? 'Wrong user name or password' : messageOf(answer);
    return;
  }
  sessionStorage.setItem('dme-credentials', credentials);
  sessionStorage.setItem('dme-user', byId('login-user').value);
  byId('login-error').textContent = '';
  byId('login-password').value = '';
  enter();
}

function logOut() {
  closeStream();
  credentials = null;
  shownUri = null;
  sessionStorage.clear();
  byId('view').replaceChildren();
  byId('console').hidden = true;
  byId('session').hidden = true;
  byId('login').hidden = false;
}

function enter() {
  byId('current-user').textContent = sessionStorage.getItem('dme-user');
  byId('login').hidden = true;
  byId('session').hidden = false;
  byId('console').hidden = false;
  show(currentUri());
}

function currentUri() {
  const hash = decodeURIComponent(location.hash.slice(1));
  return hash.startsWith('/') ? hash : '/';
}

// ---- views ----

// Shows the node at `uri`: its schema decides how, its READ what; then the inputs that the user
// may change are enabled and the view follows the tree's changes.
async function show(uri, offset = 0) {
  closeStream();
  shownUri = uri;
  document.body.removeAttribute('data-ready');
  if (currentUri() !== uri) history.replaceState(null, '', '#' + encodePath(uri));
  showCrumbs(uri);
  const readQuery = viewQuery(offset);
  const [schema, value] = await Promise.all([
    call('GET', uri, { area: config.schema }),
    call('GET', uri, { query: readQuery }),
  ]);
  if (shownUri !== uri) return;
  const view = byId('view');
  view.replaceChildren();
  byId('view-error').textContent = '';
  if (schema.status === 401 || value.status === 401) return logOut();
  if (!schema.ok) {
    byId('view-error').textContent = messageOf(schema);
    return;
  }
  const node = await drawNode(uri, schema.data, value.ok ? value.data : undefined, {
    top: true,
    offset,
    total: value.ok ? countOf(value.data) : 0,
  });
  view.append(node);
  if (!value.ok && value.status !== 405) byId('view-error').textContent = messageOf(value);
  await applyPermissions(view);
  if (shownUri !== uri) return;
  document.body.dataset.ready = uri;
  if (value.ok) openStream(uri, readQuery);
}

function viewQuery(offset) {
  const keys = config.keys;
  return query({
    [keys.expand]: VIEW_DEPTH,
    [config.limit]: pageSize,
    [config.offset]: offset || undefined,
  });
}

function showCrumbs(uri) {
  const crumbs = byId('crumbs');
  const names = uri.split('/').filter(Boolean);
  const parts = [element('a', { href: '#/' }, 'device')];
  names.forEach((name, index) => {
    const path = '/' + names.slice(0, index + 1).join('/');
    parts.push(index === names.length - 1 ? element('span', {}, name) :
      element('a', { href: '#' + encodePath(path) }, name));
  });
  if (names.length === 0) parts[0] = element('span', {}, 'device');
  crumbs.replaceChildren(...parts);
}

function countOf(value) {
  return value && typeof value === 'object' ? value[config.keys.count] : undefined;
}

function itemsOf(value) {
  if (Array.isArray(value)) return value;
  const items = value && value[config.keys.items];
  return Array.isArray(items) ? items : [];
}

function hrefOf(value) {
  const href = value && typeof value === 'object' ? value[config.keys.href] : undefined;
  return typeof href === 'string' ? decodePath(href) : undefined;
}

function isCollection(schema) {
  return schema.type === 'array' && schema.items && schema.items.type === 'object';
}

function isAtomic(schema) {
  return ['string', 'integer', 'number', 'boolean'].includes(schema.type);
}

function title(uri) {
  return uri === '/' ? 'device' : uri.slice(uri.lastIndexOf('/') + 1);
}

// The drawing of one node. `value` is its READ, undefined when it has none to show.
async function drawNode(uri, schema, value, options = {}) {
  const link = hrefOf(value);
  if (link && link !== uri && !isCollection(schema)) return drawLink(uri, link);
  if (schema.type === 'object') return drawStructure(uri, schema, value, options);
  if (isCollection(schema)) {
    if (options.top) return drawCollection(uri, schema, value, options);
    return drawLink(uri, uri, countOf(value));
  }
  if (schema.type === 'array') return drawArray(uri, schema, value);
  if (isAtomic(schema)) return drawField(uri, schema, value);
  return drawOther(uri, schema, value);
}

function drawLink(uri, target, count) {
  const label = count === undefined ? target : `${count} item${count === 1 ? '' : 's'}`;
  return element('div', { className: 'field', 'data-uri': uri },
    element('label', {}, title(uri)),
    element('a', { href: '#' + encodePath(target), className: 'link' }, label));
}

async function drawStructure(uri, schema, value, options) {
  const section = element('details', { className: 'node', open: true, 'data-uri': uri },
    element('summary', {}, title(uri)));
  const stub = value && typeof value === 'object' && Object.keys(value).length === 1;
  if (!options.top && (value === undefined || stub)) return drawLink(uri, uri);
  for (const [name, memberSchema] of Object.entries(schema.properties || {})) {
    const member = value ? value[name] : undefined;
    section.append(await drawNode(childUri(uri, name), memberSchema, member));
  }
  return section;
}

// One leaf: an input that fits its type and limits, read-only until the server allows PUT.
function drawField(uri, schema, value) {
  const input = inputFor(schema);
  input.dataset.uri = uri;
  input.disabled = true;
  if (schema.readonly) input.dataset.readonly = 'true';
  setInput(input, value);
  input.addEventListener('change', () => save(input, schema));
  const id = 'field' + uri.replace(/[^A-Za-z0-9]/g, '-');
  input.id = id;
  return element('div', { className: 'field', 'data-uri': uri },
    element('label', { htmlFor: id }, title(uri)), input,
    element('p', { className: 'error', role: 'alert' }),
    limitsNote(schema));
}

function inputFor(schema) {
  if (schema.enum) {
    return element('select', {}, ...schema.enum.map((option) => element('option', { value: option }, option)));
  }
  if (schema.type === 'boolean') return element('input', { type: 'checkbox' });
  if (schema.type === 'integer' || schema.type === 'number') {
    return element('input', {
      type: 'number',
      min: schema.minimum,
      max: schema.maximum,
      step: schema.type === 'integer' ? 1 : 'any',
    });
  }
  return element('input', {
    type: 'text',
    maxLength: schema.maxSize !== undefined && schema.maxSize < 65535 ? schema.maxSize : undefined,
    minLength: schema.minSize || undefined,
  });
}

function limitsNote(schema) {
  const limits = [];
  if (schema.minimum !== undefined || schema.maximum !== undefined) {
    limits.push(`${schema.minimum ?? '…'} to ${schema.maximum ?? '…'}`);
  }
  if (schema.type === 'string' && schema.maxSize !== undefined && schema.maxSize < 65535) {
    limits.push(`${schema.minSize || 0} to ${schema.maxSize} characters`);
  }
  return limits.length ? element('span', { className: 'note' }, limits.join(', ')) : null;
}

function setInput(input, value) {
  if (input.tagName === 'SELECT' && (value === undefined || value === null)) return;
  if (input.type === 'checkbox') input.checked = value === true;
  else input.value = value === undefined || value === null ? '' : String(value);
}

function inputValue(input, schema) {
  if (input.type === 'checkbox') return input.checked;
  if (schema.type === 'integer' || schema.type === 'number') {
    return input.value.trim() === '' ? null : Number(input.value);
  }
  return input.value;
}

// Sends the input's value as one UPDATE; a refusal shows the server's message and the stored
// value again.
async function save(input, schema) {
  const field = input.closest('.field, td');
  const error = field.querySelector('.error');
  field.classList.remove('saved');
  const answer = await call('PUT', input.dataset.uri, { body: inputValue(input, schema) });
  if (answer.ok) {
    error.textContent = '';
    field.classList.add('saved');
    return;
  }
  error.textContent = messageOf(answer);
  const stored = await call('GET', input.dataset.uri);
  if (stored.ok) setInput(input, stored.data);
}

// An array of values: one input per element, each written on its own.
function drawArray(uri, schema, value) {
  const items = Array.isArray(value) ? value : [];
  const list = element('div', { className: 'items' },
    ...items.map((item, index) => drawField(childUri(uri, String(index)), schema.items || {}, item)));
  if (items.length === 0) list.append(element('span', { className: 'note' }, 'empty'));
  return element('details', { className: 'node', open: true, 'data-uri': uri },
    element('summary', {}, title(uri)), list);
}

// A node of no declared type: its JSON, editable as a whole where the user may update it, and
// a request body editor where it takes a CREATE (an action).
function drawOther(uri, schema, value) {
  const box = element('details', { className: 'node other', open: true, 'data-uri': uri },
    element('summary', {}, title(uri)));
  if (value !== undefined) {
    const editor = element('textarea', { disabled: true, 'data-uri': uri, 'data-json': 'true' });
    editor.value = JSON.stringify(value, null, 2);
    const saveButton = element('button', { type: 'button', hidden: true, className: 'save' }, 'Save');
    const error = element('p', { className: 'error', role: 'alert' });
    saveButton.addEventListener('click', () => saveJson(uri, editor, error));
    box.append(editor, saveButton, error);
  }
  const action = element('div', { className: 'action', hidden: true, 'data-action': uri },
    element('textarea', { 'aria-label': 'Request body' }, '{}'),
    element('button', { type: 'button', className: 'primary' }, 'Run'),
    element('pre', { className: 'json result' }));
  action.querySelector('button').addEventListener('click', () => runAction(uri, action));
  box.append(action);
  return box;
}

async function saveJson(uri, editor, error) {
  let body;
  try {
    body = JSON.parse(editor.value);
  } catch (problem) {
    error.textContent = 'Not JSON: ' + problem.message;
    return;
  }
  const answer = await call('PUT', uri, { body });
  error.textContent = answer.ok ? '' : messageOf(answer);
  const stored = await call('GET', uri);
  if (stored.ok) editor.value = JSON.stringify(stored.data, null, 2);
}

async function runAction(uri, action) {
  const result = action.querySelector('.result');
  let body;
  try {
    body = JSON.parse(action.querySelector('textarea').value || 'null');
  } catch (problem) {
    result.textContent = 'Not JSON: ' + problem.message;
    return;
  }
  const answer = await call('POST', uri, { body });
  result.textContent = answer.ok ? JSON.stringify(answer.data, null, 2) : messageOf(answer);
}

// ---- collections ----

async function drawCollection(uri, schema, value, { offset, total }) {
  const itemSchema = schema.items;
  const columns = Object.entries(itemSchema.properties || {});
  const allowed = await allowedMethods(uri);
  const table = element('table', { 'data-uri': uri },
    element('thead', {}, element('tr', {}, ...columns.map(([name]) => element('th', {}, name)),
      element('th', {}, ''))));
  const body = element('tbody');
  for (const item of itemsOf(value)) body.append(await drawRow(item, columns));
  table.append(body);
  const box = element('section', { className: 'collection', 'data-uri': uri },
    element('h2', {}, title(uri)),
    element('div', { className: 'table-scroll' }, table),
    pager(uri, offset, itemsOf(value).length, total));
  if (allowed.has('POST') && !atMaximum(schema, total)) {
    box.append(addForm(uri, columns));
  }
  return box;
}

function atMaximum(schema, total) {
  return schema.maxSize !== undefined && total !== undefined && total >= schema.maxSize;
}

async function drawRow(item, columns) {
  const itemUri = hrefOf(item);
  const row = element('tr', { 'data-uri': itemUri });
  for (const [name, columnSchema] of columns) {
    const cell = element('td');
    const drawn = await drawNode(childUri(itemUri, name), columnSchema, item[name]);
    const input = drawn.querySelector('input, select');
    if (input && drawn.classList.contains('field')) {
      cell.append(input, drawn.querySelector('.error'));
    } else {
      cell.append(drawn);
    }
    row.append(cell);
  }
  const remove = element('button', { type: 'button', className: 'delete', hidden: true,
    'data-uri': itemUri }, 'Delete');
  remove.addEventListener('click', () => removeItem(itemUri, row));
  row.append(element('td', {}, remove, element('p', { className: 'error', role: 'alert' })));
  return row;
}

function pager(uri, offset, shown, total) {
  if (total === undefined || total <= pageSize) {
    return element('p', { className: 'note' }, `${total ?? shown} item${total === 1 ? '' : 's'}`);
  }
  const previous = element('button', { type: 'button', className: 'previous',
    disabled: offset === 0 }, 'Previous');
  const next = element('button', { type: 'button', className: 'next',
    disabled: offset + shown >= total }, 'Next');
  previous.addEventListener('click', () => show(uri, Math.max(0, offset - pageSize)));
  next.addEventListener('click', () => show(uri, offset + pageSize));
  return element('div', { className: 'pager' }, previous,
    element('span', {}, `${offset + 1}–${offset + shown} of ${total}`), next);
}

// A form for a new item, from the item schema's writable members.
function addForm(uri, columns) {
  const form = element('form', { className: 'add', 'data-uri': uri }, element('strong', {}, 'Add an item'));
  const inputs = [];
  for (const [name, schema] of columns) {
    if (!isAtomic(schema) || schema.readonly || name === config.keys.id) continue;
    const input = inputFor(schema);
    input.name = name;
    setInput(input, schema.default);
    inputs.push([name, schema, input]);
    form.append(element('label', {}, name, input));
  }
  const error = element('p', { className: 'error', role: 'alert' });
  form.append(element('button', { type: 'submit', className: 'add primary' }, 'Add'), error);
  form.addEventListener('submit', async (event) => {
    event.preventDefault();
    const body = {};
    for (const [name, schema, input] of inputs) body[name] = inputValue(input, schema);
    const answer = await call('POST', uri, { body });
    if (answer.ok) show(uri);
    else error.textContent = messageOf(answer);
  });
  return form;
}

async function removeItem(itemUri, row) {
  const answer = await call('DELETE', itemUri);
  if (answer.ok) row.remove();
  else row.querySelector('td:last-child .error').textContent = messageOf(answer);
}

// ---- permissions ----

// Enables what the user may change: inputs and JSON editors with PUT, delete buttons with
// DELETE, action editors with POST. Everything starts read-only.
async function applyPermissions(view) {
  const targets = view.querySelectorAll(
    'input[data-uri], select[data-uri], textarea[data-uri], button.delete, [data-action]');
  const uris = [...new Set([...targets].map((node) => node.dataset.uri || node.dataset.action))];
  const rights = new Map(await Promise.all(uris.map(async (uri) => [uri, await allowedMethods(uri)])));
  for (const node of view.querySelectorAll('input[data-uri], select[data-uri], textarea[data-uri]')) {
    const writable = rights.get(node.dataset.uri).has('PUT') && !node.dataset.readonly;
    node.disabled = !writable;
    const save = node.dataset.json && node.parentElement.querySelector('button.save');
    if (save) save.hidden = !writable;
  }
  for (const button of view.querySelectorAll('button.delete')) {
    button.hidden = !rights.get(button.dataset.uri).has('DELETE');
  }
  for (const action of view.querySelectorAll('[data-action]')) {
    action.hidden = !rights.get(action.dataset.action).has('POST');
  }
}

// ---- live changes ----

function closeStream() {
  if (stream) stream.abort();
  stream = null;
}

// Follows the changes of the shown node: each event carries its READ, whose values go to the
// inputs that the user is not editing. A dropped stream is opened again after a pause.
function openStream(uri, readQuery) {
  const controller = new AbortController();
  stream = controller;
  const separator = readQuery ? '&' : '?';
  const url = config.api + config.events + encodePath(uri) + readQuery + separator +
    'interval=' + STREAM_INTERVAL_MS;
  fetch(url, { headers: requestHeaders({ Accept: 'text/event-stream' }), signal: controller.signal })
    .then((response) => {
      if (!response.ok) throw new Error('stream refused: ' + response.status);
      return readEvents(response.body.getReader(), (name, data) => {
        if (name === 'change') applyValues(uri, JSON.parse(data));
      });
    })
    .catch(() => {})
    .finally(() => {
      if (stream === controller) setTimeout(() => stream === controller && openStream(uri, readQuery), RECONNECT_DELAY_MS);
    });
}

async function readEvents(reader, onEvent) {
  const decoder = new TextDecoder();
  let buffer = '';
  for (;;) {
    const { value, done } = await reader.read();
    if (done) return;
    buffer += decoder.decode(value, { stream: true });
    let end;
    while ((end = buffer.indexOf('\n\n')) >= 0) {
      const block = buffer.slice(0, end);
      buffer = buffer.slice(end + 2);
      let name = 'message';
      const data = [];
      for (const line of block.split('\n')) {
        if (line.startsWith('event:')) name = line.slice(6).trim();
        else if (line.startsWith('data:')) data.push(line.slice(5).replace(/^ /, ''));
      }
      if (data.length) onEvent(name, data.join('\n'));
    }
  }
}

// Puts the values of a READ of `uri` into the inputs that show them.
function applyValues(uri, value) {
  const values = new Map();
  collectValues(uri, value, values);
  for (const input of byId('view').querySelectorAll('input[data-uri], select[data-uri], textarea[data-json]')) {
    if (input === document.activeElement || !values.has(input.dataset.uri)) continue;
    const next = values.get(input.dataset.uri);
    if (input.dataset.json) input.value = JSON.stringify(next, null, 2);
    else setInput(input, next);
  }
}

function collectValues(uri, value, values) {
  values.set(uri, value);
  if (Array.isArray(value)) {
    value.forEach((item, index) => collectValues(childUri(uri, String(index)), item, values));
  } else if (value && typeof value === 'object') {
    const items = value[config.keys.items];
    if (Array.isArray(items)) {
      for (const item of items) collectValues(hrefOf(item) || uri, item, values);
    }
    for (const [name, member] of Object.entries(value)) {
      if (name !== config.keys.items) collectValues(childUri(uri, name), member, values);
    }
  }
}

// ---- start ----

async function start() {
  config = await (await fetch('console/config.json')).json();
  byId('login').addEventListener('submit', logIn);
  byId('logout').addEventListener('click', logOut);
  window.addEventListener('hashchange', () => credentials && currentUri() !== shownUri && show(currentUri()));
  if (credentials) enter();
}

start();
