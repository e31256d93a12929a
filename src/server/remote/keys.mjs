// Text as the key sequences the computer types: one sequence per character, so that a comma
// or a plus stays a character and never separates or joins keys.
const named = { ' ': 'space', '\n': 'return', '\t': 'tab' };

export function textToSequences(text) {
  const sequences = [];
  for (const character of text.replace(/\r\n?/g, '\n')) {
    if (named[character]) sequences.push(named[character]);
    else if (/^[A-Z]$/.test(character)) sequences.push(`Shift+${character.toLowerCase()}`);
    else sequences.push(character);
  }
  return sequences;
}

// Buttons for the keys a phone keyboard lacks, and common shortcuts.
export const shortcuts = [
  ['Esc', 'escape'], ['Tab', 'tab'], ['⏎', 'return'], ['⌫', 'backspace'],
  ['←', 'left'], ['↑', 'up'], ['↓', 'down'], ['→', 'right'],
  ['Home', 'home'], ['End', 'end'], ['PgUp', 'pageup'], ['PgDn', 'pagedown'],
  ['Ctrl+C', 'Ctrl+c'], ['Ctrl+V', 'Ctrl+v'], ['Ctrl+X', 'Ctrl+x'], ['Ctrl+Z', 'Ctrl+z'],
  ['Ctrl+A', 'Ctrl+a'], ['Ctrl+F', 'Ctrl+f'], ['Ctrl+T', 'Ctrl+t'], ['Ctrl+W', 'Ctrl+w'],
];
