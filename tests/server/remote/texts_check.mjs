// Runs the web remote's texts module in Node in one language and prints how it describes the
// focused element for each case: reads a JSON array of [role, name] pairs on stdin, writes a
// JSON array of labels.
//   usage: node texts_check.mjs REMOTE_DIR LANGUAGE < cases.json
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { pathToFileURL } from 'node:url';

const [remote, language] = process.argv.slice(2);
// The module picks its language from the browser's preferences when it is loaded.
Object.defineProperty(globalThis, 'navigator', { value: { languages: [language] }, configurable: true });
const texts = await import(pathToFileURL(join(remote, 'i18n.mjs')).href);
const cases = JSON.parse(readFileSync(0, 'utf8'));
process.stdout.write(JSON.stringify(cases.map(([role, name]) => texts.focusLabel(role, name))));
