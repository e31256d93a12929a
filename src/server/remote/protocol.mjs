// The remote's side of the protocol: the session key, the encryption of message bodies, the
// framing of the server's messages, and a connection that pairs, proves its key and reconnects.
// AES and SHA-1 come from the vendored aes.js and sha1.js (window.aesjs and window.sha1):
// browsers keep WebCrypto from plain-HTTP pages, which is how a phone opens this one.

const encoder = new TextEncoder();
const decoder = new TextDecoder('utf-8', { fatal: true });

function concat(parts) {
  const length = parts.reduce((sum, part) => sum + part.length, 0);
  const out = new Uint8Array(length);
  let offset = 0;
  for (const part of parts) {
    out.set(part, offset);
    offset += part.length;
  }
  return out;
}

export function toHex(bytes) {
  return Array.from(bytes, (b) => b.toString(16).padStart(2, '0')).join('');
}

// SHA-1 of the device id, its token and the session token, with the session token's first
// bytes once more: as many as its first byte (signed) leaves over when divided by its length.
export function deriveKey(id, token, sessionToken) {
  const session = encoder.encode(sessionToken);
  const parts = [encoder.encode(id), encoder.encode(token), session];
  if (session.length > 0) {
    const first = (session[0] << 24) >> 24;
    const repeat = first % session.length;
    if (repeat > 0) parts.push(session.subarray(0, repeat));
  }
  return new Uint8Array(globalThis.sha1.array(concat(parts)));
}

export function randomIv() {
  const iv = new Uint8Array(16);
  globalThis.crypto.getRandomValues(iv);
  return iv;
}

// 16 bytes of initialisation vector, then AES-128-CBC of the text with PKCS#7 padding.
export function encryptBody(plain, key, iv = randomIv()) {
  const aes = globalThis.aesjs;
  const cbc = new aes.ModeOfOperation.cbc(key.subarray(0, 16), iv);
  return concat([iv, new Uint8Array(cbc.encrypt(aes.padding.pkcs7.pad(plain)))]);
}

// The text, or null when the body does not decrypt to properly padded text.
export function decryptBody(body, key) {
  if (body.length < 32 || (body.length - 16) % 16 !== 0) return null;
  const aes = globalThis.aesjs;
  const cbc = new aes.ModeOfOperation.cbc(key.subarray(0, 16), body.subarray(0, 16));
  try {
    return new Uint8Array(aes.padding.pkcs7.strip(cbc.decrypt(body.subarray(16))));
  } catch {
    return null;
  }
}

// One message from the server: a big-endian length, the body (encrypted once there is a
// key), then attachments of (signed type byte, big-endian length, bytes) until the end.
// Null when it does not parse.
export function parseFrame(buffer, key) {
  const bytes = new Uint8Array(buffer);
  const view = new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);
  if (bytes.length < 4) return null;
  const length = view.getInt32(0);
  if (length < 0 || length > bytes.length - 4) return null;
  let body = bytes.subarray(4, 4 + length);
  if (key) {
    body = decryptBody(body, key);
    if (!body) return null;
  }
  let object;
  try {
    object = JSON.parse(decoder.decode(body));
  } catch {
    return null;
  }
  if (!object || typeof object !== 'object' || Array.isArray(object)) return null;
  const parts = [];
  let offset = 4 + length;
  while (offset < bytes.length) {
    if (offset + 5 > bytes.length) return null;
    const type = view.getInt8(offset);
    const size = view.getInt32(offset + 1);
    offset += 5;
    if (size < 0 || size > bytes.length - offset) return null;
    parts.push({ type, data: bytes.slice(offset, offset + size) });
    offset += size;
  }
  return { object, parts, method: typeof object._ === 'string' ? object._ : '' };
}

export function encodeRequest(object, key) {
  const json = encoder.encode(JSON.stringify(object));
  return key ? encryptBody(json, key) : json;
}

// A connection to the computer that served the page. States: "connecting", "waiting" (the
// user is being asked), "refused" (the user did not approve), "proving", "ready", "offline". Events: "state", "message" (detail: a
// parsed frame), "paired" (a new token was stored).
export class Connection extends EventTarget {
  constructor(url, storage) {
    super();
    this.url = url;
    this.storage = storage;
    this.state = 'offline';
    this.key = null;
    this.socket = null;
    this.retryDelay = 1000;
    this.retryTimer = 0;
  }

  get deviceId() {
    let id = this.storage.getItem('velm.deviceId');
    if (!id) {
      const bytes = new Uint8Array(12);
      globalThis.crypto.getRandomValues(bytes);
      id = `web-${toHex(bytes)}`;
      this.storage.setItem('velm.deviceId', id);
    }
    return id;
  }

  get token() {
    return this.storage.getItem('velm.token') || '';
  }

  setState(state) {
    if (this.state === state) return;
    this.state = state;
    this.dispatchEvent(new CustomEvent('state', { detail: state }));
  }

  open() {
    clearTimeout(this.retryTimer);
    this.key = null;
    const url = new URL(this.url);
    url.searchParams.set('i', this.deviceId);
    url.searchParams.set('v', '1');
    const socket = new WebSocket(url.href);
    socket.binaryType = 'arraybuffer';
    this.socket = socket;
    this.setState('connecting');
    socket.addEventListener('message', (event) => {
      if (socket === this.socket && event.data instanceof ArrayBuffer) this.onMessage(event.data);
    });
    socket.addEventListener('close', () => {
      if (socket !== this.socket) return;
      this.socket = null;
      this.key = null;
      if (this.state === 'waiting') {
        // The user said no (or closed the prompt): asking again on its own would only bring
        // the prompt back. The page offers to ask again.
        this.setState('refused');
        return;
      }
      this.setState('offline');
      // The computer may be busy pairing another device, restarting or out of reach.
      this.retryTimer = setTimeout(() => this.open(), this.retryDelay);
      this.retryDelay = Math.min(this.retryDelay * 2, 10000);
    });
  }

  // Starts again at once, as after a new token.
  reopen() {
    const old = this.socket;
    this.socket = null;
    if (old) old.close();
    this.retryDelay = 1000;
    this.open();
  }

  onMessage(data) {
    const frame = parseFrame(data, this.key);
    if (!frame) return;
    const { object, method } = frame;
    if (method === 'wa') {
      // A token the computer no longer knows is worth nothing.
      this.storage.removeItem('velm.token');
      this.setState('waiting');
      return;
    }
    if (method === 'au') {
      if (typeof object.t === 'string') {
        this.storage.setItem('velm.token', object.t);
        this.dispatchEvent(new CustomEvent('paired'));
      } else if (typeof object.st === 'string') {
        this.key = deriveKey(this.deviceId, this.token, object.st);
        this.setState('proving');
        this.send({ _: 'au', h: toHex(this.key) });
      } else if (object.v === true) {
        if (this.key) {
          this.retryDelay = 1000;
          this.setState('ready');
        } else {
          // Approved: this connection stays unencrypted, so a new one proves the key.
          this.reopen();
        }
      }
      return;
    }
    if (this.state === 'ready') this.dispatchEvent(new CustomEvent('message', { detail: frame }));
  }

  send(object) {
    if (!this.socket || this.socket.readyState !== WebSocket.OPEN) return false;
    this.socket.send(encodeRequest(object, this.key));
    return true;
  }
}
