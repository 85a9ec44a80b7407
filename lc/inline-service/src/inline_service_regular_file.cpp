#include "inline_service_regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace inline_service {

int open_regular_file(const char *path, FileBegin begin)
{
    // Never follow a link, never wait for a pipe's reader.
    const bool truncate = begin == FileBegin::empty;
    const int descriptor = open(path,
                                O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK |
                                    O_NOCTTY | (truncate ? 0 : O_APPEND),
                                0666);
    if (descriptor < 0)
        return -1;
    // Emptied only once it is known to be what it should be.
    struct stat status = {};
    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) &&
        (!truncate || ftruncate(descriptor, 0) == 0)) {
        if (!truncate) // as an appending stream does, so that its position counts what is there
            lseek(descriptor, 0, SEEK_END);
        return descriptor;
    }
    close(descriptor);
    return -1;
}

} // namespace inline_service
