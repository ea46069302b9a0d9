// The metadata file of an entry, as a commit and a renewal stage it.
#ifndef OX_SESSION_METADATA_FILE_H_
#define OX_SESSION_METADATA_FILE_H_

#include <cstdint>
#include <string>

#include "session/durable_io.h"
#include "session/entry_seal.h"
#include "session/file_at.h"
#include <oxfilecache/error.h>

namespace ox::internal {

// kInvalidArgument unless the module gives the text back as it is: 1 to 1,024 bytes of ASCII
// without NUL.
Error CheckMetadata(const std::string& metadata);

// Makes a new file of that text, time of use (nanoseconds since 1970) and seal, which may be null.
// `path` is its whole path, for messages. When something fails the file stays, and the caller
// deletes it. With `mayLackSeal` a disk that is too full for the seal is no failure.
Error StageMetadataFile(const FileAt& place, const std::string& path, const std::string& metadata,
                        std::int64_t time, const EntrySeal* seal, FileSync sync,
                        bool mayLackSeal = false);

}  // namespace ox::internal

#endif
