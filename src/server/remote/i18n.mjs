// The remote speaks the languages the program speaks: English, and Italian where the browser
// prefers it.
const strings = {
  en: {
    title: 'Velm Remote',
    connecting: 'Connecting to the computer...',
    waiting: 'Waiting for approval on the computer...',
    pairingHint: 'Approve this device in the window that opened on the computer.',
    refused: 'This device was not approved on the computer.',
    askAgain: 'Ask again',
    offline: 'The computer cannot be reached. Trying again...',
    proving: 'Connecting securely...',
    apps: 'Apps', control: 'Control', menu: 'Menu', files: 'Files', system: 'System',
    front: 'In front', actions: 'Actions for %1',
    close: 'Close', quit: 'Quit', minimize: 'Minimise', maximize: 'Maximise', fullScreen: 'Full screen',
    noFront: 'No application in front',
    scroll: 'Scroll', scrollPad: 'Drag up or down', scrollUp: 'Scroll up', scrollDown: 'Scroll down',
    keyboard: 'Keyboard', typePlaceholder: 'Text to type', type: 'Type',
    focused: 'Focused field', noFocus: 'Nothing is focused.', read: 'Read', set: 'Set', press: 'Press',
    roleWindow: 'Window', roleText: 'Text field', roleTextArea: 'Text area', roleList: 'List',
    roleTable: 'Table', roleButton: 'Button', roleOther: 'Focused element',
    commands: 'Commands', refresh: 'Refresh', noMenu: 'This application shows no menu.',
    up: 'Up', emptyFolder: 'This folder is empty.',
    open: 'Open', openWith: 'Open with', noApps: 'No application can open this file.', noPreview: 'No preview',
    volume: 'Volume', mute: 'Mute', brightness: 'Brightness',
    media: 'Media', previous: 'Previous', playPause: 'Play/Pause', next: 'Next',
    power: 'Power', lock: 'Lock', sleep: 'Sleep', restart: 'Restart', shutdown: 'Shut down', logout: 'Log out',
    locked: 'The screen is locked.',
    confirmLock: 'Lock the screen?', confirmSleep: 'Put the computer to sleep?',
    confirmRestart: 'Restart the computer?', confirmShutdown: 'Shut the computer down?',
    confirmLogout: 'Log out of the computer?',
    forget: 'Forget this computer', confirmForget: 'Forget this computer? You will have to approve this device again.',
    cancel: 'Cancel', closeSheet: 'Done',
  },
  it: {
    title: 'Velm Remote',
    connecting: 'Connessione al computer...',
    waiting: 'In attesa di approvazione sul computer...',
    pairingHint: 'Approva questo dispositivo nella finestra aperta sul computer.',
    refused: 'Questo dispositivo non è stato approvato sul computer.',
    askAgain: 'Chiedi di nuovo',
    offline: 'Il computer non è raggiungibile. Nuovo tentativo...',
    proving: 'Connessione sicura...',
    apps: 'App', control: 'Controllo', menu: 'Menu', files: 'File', system: 'Sistema',
    front: 'In primo piano', actions: 'Azioni per %1',
    close: 'Chiudi', quit: 'Esci', minimize: 'Riduci', maximize: 'Ingrandisci', fullScreen: 'Schermo intero',
    noFront: 'Nessuna applicazione in primo piano',
    scroll: 'Scorrimento', scrollPad: 'Trascina in su o in giù', scrollUp: 'Scorri su', scrollDown: 'Scorri giù',
    keyboard: 'Tastiera', typePlaceholder: 'Testo da digitare', type: 'Digita',
    focused: 'Campo attivo', noFocus: 'Nessun campo attivo.', read: 'Leggi', set: 'Imposta', press: 'Premi',
    roleWindow: 'Finestra', roleText: 'Campo di testo', roleTextArea: 'Area di testo', roleList: 'Elenco',
    roleTable: 'Tabella', roleButton: 'Pulsante', roleOther: 'Elemento attivo',
    commands: 'Comandi', refresh: 'Aggiorna', noMenu: 'Questa applicazione non ha menu.',
    up: 'Su', emptyFolder: 'Questa cartella è vuota.',
    open: 'Apri', openWith: 'Apri con', noApps: 'Nessuna applicazione può aprire questo file.', noPreview: 'Nessuna anteprima',
    volume: 'Volume', mute: 'Muto', brightness: 'Luminosità',
    media: 'Multimedia', previous: 'Precedente', playPause: 'Riproduci/Pausa', next: 'Successivo',
    power: 'Alimentazione', lock: 'Blocca', sleep: 'Stop', restart: 'Riavvia', shutdown: 'Spegni', logout: 'Esci dalla sessione',
    locked: 'Lo schermo è bloccato.',
    confirmLock: 'Bloccare lo schermo?', confirmSleep: 'Mettere il computer in stop?',
    confirmRestart: 'Riavviare il computer?', confirmShutdown: 'Spegnere il computer?',
    confirmLogout: 'Uscire dalla sessione sul computer?',
    forget: 'Dimentica questo computer', confirmForget: 'Dimenticare questo computer? Dovrai approvare di nuovo questo dispositivo.',
    cancel: 'Annulla', closeSheet: 'Fine',
  },
};

function pickLanguage(preferred) {
  for (const tag of preferred) {
    const language = String(tag).toLowerCase().split('-')[0];
    if (language in strings) return language;
  }
  return 'en';
}

export const language = pickLanguage(globalThis.navigator?.languages ?? ['en']);

export function t(key, ...args) {
  const text = strings[language][key] ?? strings.en[key] ?? key;
  return args.reduce((out, arg, i) => out.replace(`%${i + 1}`, arg), text);
}

// What has the focus on the computer, in words: the computer names the kind of element
// ("TextArea", "Null" for nothing), which is no word to show.
const roles = ['Window', 'Text', 'TextArea', 'List', 'Table', 'Button'];
export function focusLabel(role, name) {
  if (!role || role === 'Null') return t('noFocus');
  const kind = roles.includes(role) ? t(`role${role}`) : t('roleOther');
  return typeof name === 'string' && name ? `${kind} · ${name}` : kind;
}

// Texts of the page itself: data-t sets the text, data-t-placeholder and data-t-label the
// placeholder and the accessible name.
export function translatePage(root) {
  root.documentElement.lang = language;
  for (const element of root.querySelectorAll('[data-t]')) element.textContent = t(element.dataset.t);
  for (const element of root.querySelectorAll('[data-t-placeholder]'))
    element.placeholder = t(element.dataset.tPlaceholder);
  for (const element of root.querySelectorAll('[data-t-label]'))
    element.setAttribute('aria-label', t(element.dataset.tLabel));
}
