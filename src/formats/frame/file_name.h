// Data format and compression from a file name.
//
// 1. The last suffix is the text from the last '.' to the end, searched backwards and not
//    past a '/' or '\'; empty when there is none.
// 2. ".gz" gives gzip and ".zst" zstd compression; the name is then cut before that suffix
//    and the suffix before it is used in step 3. Anything else means no compression.
// 3. The suffix is compared, case-sensitively and over its own length only, with ".mps",
//    ".lp", ".opf", ".fmps", ".task", ".ptf", ".cbf", ".jtask" in that order; the first match
//    gives formats 1 to 8. So ".m" and the empty suffix match ".mps", and no match at all also
//    gives MPS. Upper-case suffixes are not recognised.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/file_stream.h"
#include "qubor.h"

namespace qubor::formats {

struct FileKind {
  int32_t format;    // QBR_DATA_FORMAT_*, never 0
  int32_t compress;  // QBR_COMPRESS_NONE, _GZIP or _ZSTD
};

FileKind file_kind(std::string_view name);
// The stream kind of a compression code: gzip, zstd, and plain for every other value.
platform::Compression compression_of(int32_t compress);

}  // namespace qubor::formats
