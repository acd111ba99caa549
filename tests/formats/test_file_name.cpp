// Format and compression chosen from file names, including the kept quirks: case-sensitive
// suffixes, prefix matching, MPS as the fallback.
#include <gtest/gtest.h>

#include "formats/frame/file_name.h"
#include "qubor.h"

using qubor::formats::file_kind;

TEST(FileName, SuffixRules) {
  struct Case {
    const char* name;
    int format, compress;
  } cases[] = {
      {"model.mps", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model.mps.gz", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_GZIP},
      {"model.lp.zst", QBR_DATA_FORMAT_LP, QBR_COMPRESS_ZSTD},
      {"model.gz", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_GZIP},
      {"model.txt", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model.MPS", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model.LP", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model.l", QBR_DATA_FORMAT_LP, QBR_COMPRESS_NONE},
      {"model.m", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model.", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model.fmps", QBR_DATA_FORMAT_FREE_MPS, QBR_COMPRESS_NONE},
      {"model.f", QBR_DATA_FORMAT_FREE_MPS, QBR_COMPRESS_NONE},
      {"model.opf", QBR_DATA_FORMAT_OP, QBR_COMPRESS_NONE},
      {"model.task.gz", QBR_DATA_FORMAT_TASK, QBR_COMPRESS_GZIP},
      {"model.t", QBR_DATA_FORMAT_TASK, QBR_COMPRESS_NONE},
      {"model.ptf", QBR_DATA_FORMAT_PTF, QBR_COMPRESS_NONE},
      {"model.p", QBR_DATA_FORMAT_PTF, QBR_COMPRESS_NONE},
      {"model.cbf.zst", QBR_DATA_FORMAT_CB, QBR_COMPRESS_ZSTD},
      {"model.jtask", QBR_DATA_FORMAT_JSON_TASK, QBR_COMPRESS_NONE},
      {"model.j", QBR_DATA_FORMAT_JSON_TASK, QBR_COMPRESS_NONE},
      {"model.qps.gz", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_GZIP},
      {"dir.lp/model", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"dir.lp\\model", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE},
      {"model.gz.lp", QBR_DATA_FORMAT_LP, QBR_COMPRESS_NONE},
      {"model.lp.gz.gz", QBR_DATA_FORMAT_MPS, QBR_COMPRESS_GZIP},
  };
  for (const Case& c : cases) {
    auto k = file_kind(c.name);
    EXPECT_EQ(k.format, c.format) << c.name;
    EXPECT_EQ(k.compress, c.compress) << c.name;
  }
}
