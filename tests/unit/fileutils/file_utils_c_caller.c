#include "fileutils/file_utils_c.h"

int shredFromC(const char* path)
{
    FileUtils* object = FileUtils_create();
    int status = FileUtils_shredFile(object, path);
    FileUtils_release(object);
    return status;
}
