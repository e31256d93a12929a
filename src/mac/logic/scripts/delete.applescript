-- Moves the files given as POSIX paths to the Trash.
on run argv
    tell application "Finder"
        repeat with itemPath in argv
            delete (POSIX file (itemPath as text) as alias)
        end repeat
    end tell
end run
