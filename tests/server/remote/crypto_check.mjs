// Runs the web remote's own protocol module in Node, with the vendored AES and SHA-1 it uses
// in the browser, on cases the program made: reads one JSON array of cases on stdin, writes
// one JSON array of results.
//   usage: node crypto_check.mjs REMOTE_DIR < cases.json
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const remote = process.argv[2];
const require = createRequire(import.meta.url);
globalThis.aesjs = require(join(remote, 'vendor/aes.js'));
globalThis.sha1 = require(join(remote, 'vendor/sha1.js'));
const protocol = await import(pathToFileURL(join(remote, 'protocol.mjs')).href);

const fromHex = (hex) => Uint8Array.from(hex.match(/../g) || [], (b) => parseInt(b, 16));
const cases = JSON.parse(readFileSync(0, 'utf8'));
const results = cases.map((c) => {
  const key = protocol.deriveKey(c.id, c.token, c.sessionToken);
  const plain = protocol.decryptBody(fromHex(c.programBody), fromHex(c.programKey));
  const ours = protocol.encryptBody(new TextEncoder().encode(c.plain), key);
  const frame = c.programFrame ? protocol.parseFrame(fromHex(c.programFrame).buffer, fromHex(c.programKey)) : null;
  return {
    key: protocol.toHex(key),
    decrypted: plain ? new TextDecoder().decode(plain) : null,
    body: protocol.toHex(ours),
    frame: frame && {
      object: frame.object,
      parts: frame.parts.map((p) => ({ type: p.type, data: protocol.toHex(p.data) })),
    },
  };
});
process.stdout.write(JSON.stringify(results));
