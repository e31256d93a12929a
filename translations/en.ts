<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>AboutBox</name>
    <message>
        <source>About %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Remote control</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Version %1</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Preferences</name>
    <message>
        <source>%1 Preferences</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Automatically start %1 at login</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Prevent sleep when clients are connected</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 devices authorized</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Deauthorize All</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>UI</name>
    <message>
        <source>Preferences...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>About %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Quit</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 is running. Your desktop shows no tray icons; start %1 again to open its preferences.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>No clients connected</source>
        <translation type="unfinished"></translation>
    </message>
    <message numerus="yes">
        <source>%n client(s) connected</source>
        <translation>
            <numerusform>%n client connected</numerusform>
            <numerusform>%n clients connected</numerusform>
        </translation>
    </message>
    <message>
        <source>%1 would like to connect.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Deny</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Authorize</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open Web Remote...</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>Updater</name>
    <message>
        <source>Check for Updates...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Version %1 is available...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Downloading version %1...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Restart to Update</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Version %1 download failed</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Check for Updates</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Download Update</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Downloading update...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Retry Update Download</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Didn&apos;t check for updates.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You have the latest version.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Version %1 is available.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>An update has been downloaded and is ready to be installed.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Version %1 download failed.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>WebRemoteDialog</name>
    <message>
        <source>%1 Web Remote</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Open this address in a browser on a phone, tablet or computer on the same network, or point a phone&apos;s camera at the code:</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The device still has to be approved here the first time.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Copy Address</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>The server is not listening yet.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>WelcomeView</name>
    <message>
        <source>Welcome to %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Do not show this message again</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Use %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>OK</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You can now connect your device to this %1 named &lt;b&gt;%2&lt;/b&gt;.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 lives as a tray icon on your menu bar.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 needs permissions to use accessibility features.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>To turn them on:</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>desktop</name>
    <message>
        <source>Open the accessibility settings of your desktop (GNOME: Settings, Accessibility; KDE Plasma: System Settings, Accessibility)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Turn on the support for assistive technologies (on GNOME you can also run &lt;code&gt;gsettings set org.gnome.desktop.interface toolkit-accessibility true&lt;/code&gt;)</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Restart the applications you want to control, or log out and back in</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>updater::FeedUpdater</name>
    <message>
        <source>This copy of %1 does not check for updates. Your package manager or the %1 web site has new versions.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>You have the latest version.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>%1 %2 is the newest version available.</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Cannot check for updates.</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
