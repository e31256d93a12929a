// A file system that never answers: mounted at the given folder, it answers the root folder's
// attributes (so that the mount can be seen) and leaves every other request waiting for good,
// as a hung network or FUSE mount does. Ends, unmounting, on SIGTERM or SIGINT.
//   usage: hangfs MOUNTPOINT
#define FUSE_USE_VERSION 34

#include <fuse_lowlevel.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/stat.h>

static void getattr(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info *info)
{
    (void)info;
    if (inode != FUSE_ROOT_ID)
        return; // never answered
    struct stat attributes;
    memset(&attributes, 0, sizeof attributes);
    attributes.st_ino = FUSE_ROOT_ID;
    attributes.st_mode = S_IFDIR | 0755;
    attributes.st_nlink = 2;
    fuse_reply_attr(request, &attributes, 0);
}

// Requests that are never answered: the caller waits until the mount goes away.
static void lookup(fuse_req_t request, fuse_ino_t parent, const char *name)
{
    (void)request;
    (void)parent;
    (void)name;
}

static void opendir(fuse_req_t request, fuse_ino_t inode, struct fuse_file_info *info)
{
    (void)request;
    (void)inode;
    (void)info;
}

static const struct fuse_lowlevel_ops operations = {
    .lookup = lookup,
    .getattr = getattr,
    .opendir = opendir,
};

int main(int argc, char *argv[])
{
    if (argc != 2) {
        fprintf(stderr, "usage: %s MOUNTPOINT\n", argv[0]);
        return 2;
    }
    // A test that dies (an abort, a crash) takes the mount with it.
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    char *arguments[] = { argv[0], NULL };
    struct fuse_args args = FUSE_ARGS_INIT(1, arguments);
    struct fuse_session *session = fuse_session_new(&args, &operations, sizeof operations, NULL);
    if (!session)
        return 1;
    int status = 1;
    if (fuse_set_signal_handlers(session) == 0) {
        if (fuse_session_mount(session, argv[1]) == 0) {
            // The test waits for this line before using the mount.
            printf("mounted\n");
            fflush(stdout);
            status = fuse_session_loop(session) ? 1 : 0;
            fuse_session_unmount(session);
        }
        fuse_remove_signal_handlers(session);
    }
    fuse_session_destroy(session);
    return status;
}
