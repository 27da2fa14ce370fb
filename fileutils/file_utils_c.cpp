#include "fileutils/file_utils_c.h"

#include "fileutils/file_utils.h"
#include "platform/status.h"

#include <exception>
#include <new>

FileUtils* FileUtils_create()
{
    // A C caller cannot hold an owning type: FileUtils_release takes the object back.
    return new (std::nothrow) FileUtils;
}

void FileUtils_release(FileUtils* object)
{
    delete object;
}

int FileUtils_shredFile(FileUtils* /*object*/, const char* path)
{
    try {
        return FileUtils::shredFile(path ? path : "");
    } catch (const std::exception&) { // the path's own copy: no exception may reach a C caller
        return EC_file_write_failed;
    }
}
