-- Makes the Finder read the folders given as POSIX paths again.
on run argv
    tell application "Finder"
        repeat with folderPath in argv
            update (POSIX file (folderPath as text) as alias)
        end repeat
    end tell
end run
