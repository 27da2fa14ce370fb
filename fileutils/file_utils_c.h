/// FileUtils for callers in C.
#pragma once

#ifdef __cplusplus
class FileUtils;
extern "C" {
#else
typedef struct FileUtils FileUtils;
#endif

/// A new object, released with FileUtils_release. Null when memory is short.
FileUtils* FileUtils_create(void);

/// Frees an object; null is accepted.
void FileUtils_release(FileUtils* object);

/// FileUtils::shredFile with its statuses. The object is not used and may be null; a null path counts as an
/// empty one.
int FileUtils_shredFile(FileUtils* object, const char* path);

#ifdef __cplusplus
}
#endif
