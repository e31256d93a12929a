// The login item: started by the system when the user logs in, it starts the application
// whose bundle holds it (four levels up: Contents/Library/LoginItems/VelmHelper.app) and ends.

#import <AppKit/AppKit.h>

int main(int argc, const char *argv[])
{
    (void)argc;
    (void)argv;
    @autoreleasepool {
        NSString *helper = [[NSBundle mainBundle] bundlePath];
        NSString *application = helper;
        for (int level = 0; level < 4; ++level)
            application = [application stringByDeletingLastPathComponent];
        NSWorkspace *workspace = [NSWorkspace sharedWorkspace];
        for (NSRunningApplication *running in [workspace runningApplications]) {
            if ([[[running bundleURL] path] isEqualToString:application])
                return 0;
        }
        [workspace launchApplication:application];
    }
    return 0;
}
