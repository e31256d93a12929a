<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="it">
<context>
    <name>AboutBox</name>
    <message>
        <source>About %1</source>
        <translation>Informazioni su %1</translation>
    </message>
    <message>
        <source>Remote control</source>
        <translation>Telecomando</translation>
    </message>
    <message>
        <source>Version %1</source>
        <translation>Versione %1</translation>
    </message>
</context>
<context>
    <name>Preferences</name>
    <message>
        <source>%1 Preferences</source>
        <translation>Preferenze di %1</translation>
    </message>
    <message>
        <source>Automatically start %1 at login</source>
        <translation>Avvia automaticamente %1 all&apos;accesso</translation>
    </message>
    <message>
        <source>Prevent sleep when clients are connected</source>
        <translation>Impedisci lo stop quando ci sono client connessi</translation>
    </message>
    <message>
        <source>%1 devices authorized</source>
        <translation>%1 dispositivi autorizzati</translation>
    </message>
    <message>
        <source>Deauthorize All</source>
        <translation>Revoca tutti</translation>
    </message>
</context>
<context>
    <name>UI</name>
    <message>
        <source>Preferences...</source>
        <translation>Preferenze...</translation>
    </message>
    <message>
        <source>About %1</source>
        <translation>Informazioni su %1</translation>
    </message>
    <message>
        <source>Quit</source>
        <translation>Esci</translation>
    </message>
    <message>
        <source>%1 is running. Your desktop shows no tray icons; start %1 again to open its preferences.</source>
        <translation>%1 è in esecuzione. Il tuo desktop non mostra icone nell&apos;area di notifica: avvia di nuovo %1 per aprirne le preferenze.</translation>
    </message>
    <message>
        <source>No clients connected</source>
        <translation>Nessun client connesso</translation>
    </message>
    <message numerus="yes">
        <source>%n client(s) connected</source>
        <translation>
            <numerusform>%n client connesso</numerusform>
            <numerusform>%n client connessi</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 would like to connect.</source>
        <translation>%1 vorrebbe connettersi.</translation>
    </message>
    <message>
        <source>Deny</source>
        <translation>Rifiuta</translation>
    </message>
    <message>
        <source>Authorize</source>
        <translation>Autorizza</translation>
    </message>
    <message>
        <source>Open Web Remote...</source>
        <translation>Apri telecomando web...</translation>
    </message>
</context>
<context>
    <name>Updater</name>
    <message>
        <source>Check for Updates...</source>
        <translation>Controlla aggiornamenti...</translation>
    </message>
    <message>
        <source>Version %1 is available...</source>
        <translation>È disponibile la versione %1...</translation>
    </message>
    <message>
        <source>Downloading version %1...</source>
        <translation>Download della versione %1...</translation>
    </message>
    <message>
        <source>Restart to Update</source>
        <translation>Riavvia per aggiornare</translation>
    </message>
    <message>
        <source>Version %1 download failed</source>
        <translation>Download della versione %1 non riuscito</translation>
    </message>
    <message>
        <source>Check for Updates</source>
        <translation>Controlla aggiornamenti</translation>
    </message>
    <message>
        <source>Download Update</source>
        <translation>Scarica aggiornamento</translation>
    </message>
    <message>
        <source>Downloading update...</source>
        <translation>Download dell&apos;aggiornamento...</translation>
    </message>
    <message>
        <source>Retry Update Download</source>
        <translation>Riprova il download</translation>
    </message>
    <message>
        <source>Didn&apos;t check for updates.</source>
        <translation>Aggiornamenti non ancora controllati.</translation>
    </message>
    <message>
        <source>You have the latest version.</source>
        <translation>Hai la versione più recente.</translation>
    </message>
    <message>
        <source>Version %1 is available.</source>
        <translation>È disponibile la versione %1.</translation>
    </message>
    <message>
        <source>An update has been downloaded and is ready to be installed.</source>
        <translation>Un aggiornamento è stato scaricato ed è pronto per l&apos;installazione.</translation>
    </message>
    <message>
        <source>Version %1 download failed.</source>
        <translation>Download della versione %1 non riuscito.</translation>
    </message>
</context>
<context>
    <name>WebRemoteDialog</name>
    <message>
        <source>%1 Web Remote</source>
        <translation>Telecomando web di %1</translation>
    </message>
    <message>
        <source>Open this address in a browser on a phone, tablet or computer on the same network, or point a phone&apos;s camera at the code:</source>
        <translation>Apri questo indirizzo in un browser su un telefono, un tablet o un computer della stessa rete, oppure inquadra il codice con la fotocamera di un telefono:</translation>
    </message>
    <message>
        <source>The device still has to be approved here the first time.</source>
        <translation>La prima volta il dispositivo deve comunque essere approvato qui.</translation>
    </message>
    <message>
        <source>Copy Address</source>
        <translation>Copia indirizzo</translation>
    </message>
    <message>
        <source>The server is not listening yet.</source>
        <translation>Il server non è ancora in ascolto.</translation>
    </message>
</context>
<context>
    <name>WelcomeView</name>
    <message>
        <source>Welcome to %1</source>
        <translation>Benvenuto in %1</translation>
    </message>
    <message>
        <source>Do not show this message again</source>
        <translation>Non mostrare più questo messaggio</translation>
    </message>
    <message>
        <source>Use %1</source>
        <translation>Usa %1</translation>
    </message>
    <message>
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>You can now connect your device to this %1 named &lt;b&gt;%2&lt;/b&gt;.</source>
        <translation>Ora puoi connettere il tuo dispositivo a questo %1 chiamato &lt;b&gt;%2&lt;/b&gt;.</translation>
    </message>
    <message>
        <source>%1 lives as a tray icon on your menu bar.</source>
        <translation>%1 vive come icona nell&apos;area di notifica della barra dei menu.</translation>
    </message>
    <message>
        <source>%1 needs permissions to use accessibility features.</source>
        <translation>%1 ha bisogno dei permessi per usare le funzioni di accessibilità.</translation>
    </message>
    <message>
        <source>To turn them on:</source>
        <translation>Per attivarle:</translation>
    </message>
</context>
<context>
    <name>desktop</name>
    <message>
        <source>Open the accessibility settings of your desktop (GNOME: Settings, Accessibility; KDE Plasma: System Settings, Accessibility)</source>
        <translation>Apri le impostazioni di accessibilità del tuo desktop (GNOME: Impostazioni, Accessibilità; KDE Plasma: Impostazioni di sistema, Accessibilità)</translation>
    </message>
    <message>
        <source>Turn on the support for assistive technologies (on GNOME you can also run &lt;code&gt;gsettings set org.gnome.desktop.interface toolkit-accessibility true&lt;/code&gt;)</source>
        <translation>Attiva il supporto alle tecnologie assistive (su GNOME puoi anche eseguire &lt;code&gt;gsettings set org.gnome.desktop.interface toolkit-accessibility true&lt;/code&gt;)</translation>
    </message>
    <message>
        <source>Restart the applications you want to control, or log out and back in</source>
        <translation>Riavvia le applicazioni che vuoi controllare, oppure esci e rientra nella sessione</translation>
    </message>
</context>
<context>
    <name>updater::FeedUpdater</name>
    <message>
        <source>This copy of %1 does not check for updates. Your package manager or the %1 web site has new versions.</source>
        <translation>Questa copia di %1 non controlla gli aggiornamenti. Le nuove versioni sono nel gestore dei pacchetti o sul sito di %1.</translation>
    </message>
    <message>
        <source>You have the latest version.</source>
        <translation>Hai la versione più recente.</translation>
    </message>
    <message>
        <source>%1 %2 is the newest version available.</source>
        <translation>%1 %2 è la versione più recente disponibile.</translation>
    </message>
    <message>
        <source>Cannot check for updates.</source>
        <translation>Impossibile controllare gli aggiornamenti.</translation>
    </message>
</context>
</TS>
