#include "formats/frame/file_name.h"

#include "qubor.h"
#include "task/tables.h"

namespace qubor::formats {

namespace {

std::string_view last_suffix(std::string_view name) {
  for (size_t k = name.size(); k-- > 0;) {
    char c = name[k];
    if (c == '/' || c == '\\') break;
    if (c == '.') return name.substr(k);
  }
  return {};
}

}  // namespace

FileKind file_kind(std::string_view name) {
  FileKind kind{QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE};
  std::string_view suffix = last_suffix(name);
  const std::string_view gz = task::enum_text(task::EnumGroup::COMPRESSTYPE, QBR_COMPRESS_GZIP);
  const std::string_view zst = task::enum_text(task::EnumGroup::COMPRESSTYPE, QBR_COMPRESS_ZSTD);
  if (suffix == gz || suffix == zst) {
    kind.compress = suffix == gz ? QBR_COMPRESS_GZIP : QBR_COMPRESS_ZSTD;
    suffix = last_suffix(name.substr(0, name.size() - suffix.size()));
  }
  // The suffixes are the texts of the data-format constants, in their numbering order.
  for (int32_t f = QBR_DATA_FORMAT_MPS; f <= QBR_DATA_FORMAT_JSON_TASK; ++f) {
    std::string_view listed = task::enum_text(task::EnumGroup::DATAFORMAT, f);
    if (listed.substr(0, suffix.size()) == suffix) {
      kind.format = f;
      break;
    }
  }
  return kind;
}

platform::Compression compression_of(int32_t compress) {
  if (compress == QBR_COMPRESS_GZIP) return platform::Compression::kGzip;
  if (compress == QBR_COMPRESS_ZSTD) return platform::Compression::kZstd;
  return platform::Compression::kNone;
}

}  // namespace qubor::formats
