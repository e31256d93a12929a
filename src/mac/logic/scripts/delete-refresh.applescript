-- Moves the files given as POSIX paths to the Trash, then makes the Finder read their folders
-- again.
on run argv
    tell application "Finder"
        repeat with itemPath in argv
            set doomed to (POSIX file (itemPath as text) as alias)
            set folderOfItem to container of doomed
            delete doomed
            update folderOfItem
        end repeat
    end tell
end run
