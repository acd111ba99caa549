// The file frame: name resolution, forced formats, PTF and unknown formats, open failures,
// callbacks around a read, emptying the task, the read information items and the summary.
#include <string>

#include "format_fixture.h"

namespace {

const char* kSmall =
    "NAME\nROWS\n N obj\n L c\nCOLUMNS\n    x obj 1 c 1\n    m 'MARKER' 'INTORG'\n    y c 1\n"
    "    m 'MARKER' 'INTEND'\nRHS\n    rhs c 4\nENDATA\n";

struct CallbackLog {
  std::vector<QBRint32t> codes;
  QBRint32t answer_begin = 0;
};

QBRint32t record(QBRtask_t, void* h, QBRint32t caller, const QBRrealt*, const QBRint32t*, const QBRint64t*) {
  auto* log = static_cast<CallbackLog*>(h);
  log->codes.push_back(caller);
  return caller == QBR_CALLBACK_BEGIN_READ ? log->answer_begin : 0;
}

}  // namespace

class Frame : public FormatTest {};

TEST_F(Frame, NullAndEmptyNames) {
  EXPECT_EQ(QBR_readdata(task, nullptr), QBR_RES_ERR_FILE_OPEN);
  EXPECT_EQ(QBR_writedata(task, nullptr), QBR_RES_ERR_FILE_OPEN);
  EXPECT_EQ(QBR_readdataautoformat(task, nullptr), QBR_RES_ERR_INVALID_FILE_NAME);
  const std::string path = write_text("default.mps", kSmall);
  ASSERT_EQ(QBR_putstrparam(task, QBR_SPAR_DATA_FILE_NAME, path.c_str()), QBR_RES_OK);
  EXPECT_EQ(QBR_readdata(task, nullptr), QBR_RES_OK);
  EXPECT_EQ(numvar(), 2);
  EXPECT_EQ(QBR_readdata(task, "/nonexistent/file.mps"), QBR_RES_ERR_FILE_OPEN);
  EXPECT_EQ(last_message(), "The file '/nonexistent/file.mps' could not be opened.");
  EXPECT_EQ(QBR_readdata(nullptr, "x.mps"), QBR_RES_ERR_NULL_TASK);
}

TEST_F(Frame, OpenLineAndForcedFormat) {
  const std::string path = write_text("really_mps.lp", kSmall);
  EXPECT_NE(QBR_readdata(task, path.c_str()), QBR_RES_OK);  // read as LP, which it is not
  log.text.clear();
  EXPECT_EQ(QBR_readdataformat(task, path.c_str(), QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE), QBR_RES_OK);
  EXPECT_NE(log.text.find("Open file '" + path + "'\n"), std::string::npos);
  QBR_putintparam(task, QBR_IPAR_LOG_LOCAL_INFO, 0);
  log.text.clear();
  EXPECT_EQ(QBR_readdataformat(task, path.c_str(), QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE), QBR_RES_OK);
  EXPECT_EQ(log.text.find("Open file"), std::string::npos);
}

TEST_F(Frame, CompressionFromSuffixAndForced) {
  const std::string plain = write_text("c.mps", kSmall);
  ASSERT_EQ(QBR_readdata(task, plain.c_str()), QBR_RES_OK);
  for (const char* name : {"c.mps.gz", "c.mps.zst", "c.gz"}) {
    const std::string path = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, path.c_str()), QBR_RES_OK) << name;
    ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK) << name;
    EXPECT_EQ(numvar(), 2) << name;
  }
  // A gzip file under a plain name, with the compression forced.
  const std::string gz = temp_path("c.mps.gz");
  const std::string hidden = write_text("hidden.bin", read_text(gz));
  EXPECT_EQ(QBR_readdataformat(task, hidden.c_str(), QBR_DATA_FORMAT_MPS, QBR_COMPRESS_GZIP), QBR_RES_OK);
  EXPECT_NE(QBR_readdataformat(task, hidden.c_str(), QBR_DATA_FORMAT_MPS, QBR_COMPRESS_NONE), QBR_RES_OK);
}

TEST_F(Frame, FormatsWithoutAReader) {
  const std::string ptf = write_text("m.ptf", "whatever\n");
  EXPECT_EQ(QBR_readdata(task, ptf.c_str()), QBR_RES_ERR_READ_FORMAT);
  const std::string mps = write_text("m.mps", kSmall);
  EXPECT_EQ(QBR_readdataformat(task, mps.c_str(), 9, QBR_COMPRESS_NONE), QBR_RES_ERR_READ_FORMAT);
  EXPECT_EQ(QBR_readdataformat(task, mps.c_str(), -1, QBR_COMPRESS_NONE), QBR_RES_ERR_READ_FORMAT);
}

TEST_F(Frame, IncompatibleItemsAreRefusedBeforeWriting) {
  ASSERT_EQ(QBR_appendvars(task, 2), QBR_RES_OK);
  const QBRint32t sub[] = {0, 1};
  ASSERT_EQ(QBR_appendcone(task, QBR_CT_QUAD, 0.0, 2, sub), QBR_RES_OK);
  EXPECT_EQ(QBR_writedata(task, temp_path("cone.lp").c_str()), QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_CONES);
  const QBRint32t dim[] = {2};
  ASSERT_EQ(QBR_appendbarvars(task, 1, dim), QBR_RES_OK);
  EXPECT_EQ(QBR_writedata(task, temp_path("sym.lp").c_str()), QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_SYM_MAT);
  EXPECT_EQ(last_message(), "The LP format cannot hold symmetric matrix variables.");
  EXPECT_EQ(QBR_writedata(task, temp_path("sym.opf").c_str()), QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_SYM_MAT);
  // A refused write leaves the file that was there.
  const std::string kept = write_text("kept.lp", "minimize\n x\nend\n");
  EXPECT_EQ(QBR_writedata(task, kept.c_str()), QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_SYM_MAT);
  EXPECT_EQ(read_text(kept), "minimize\n x\nend\n");
}

TEST_F(Frame, CallbacksAroundTheRead) {
  CallbackLog cb;
  ASSERT_EQ(QBR_putcallbackfunc(task, record, &cb), QBR_RES_OK);
  const std::string path = write_text("cb.mps", kSmall);
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  ASSERT_EQ(cb.codes.size(), 2u);
  EXPECT_EQ(cb.codes[0], QBR_CALLBACK_BEGIN_READ);
  EXPECT_EQ(cb.codes[1], QBR_CALLBACK_END_READ);
  // A nonzero answer at the start ends the call with that answer, the task untouched.
  cb.answer_begin = 4242;
  const std::string other = write_text("cb2.mps", "NAME\nROWS\n N obj\nCOLUMNS\n    z obj 1\nENDATA\n");
  EXPECT_EQ(QBR_readdata(task, other.c_str()), 4242);
  EXPECT_EQ(numvar(), 2);
}

TEST_F(Frame, ReadEmptiesTheTaskFirst) {
  ASSERT_EQ(QBR_appendvars(task, 7), QBR_RES_OK);
  ASSERT_EQ(QBR_appendcons(task, 3), QBR_RES_OK);
  QBR_putcfix(task, 99.0);
  QBR_putobjsense(task, QBR_OBJECTIVE_SENSE_MAXIMIZE);
  const std::string path = write_text("e.mps", kSmall);
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  EXPECT_EQ(numvar(), 2);
  EXPECT_EQ(numcon(), 1);
  double cfix = -1;
  QBR_getcfix(task, &cfix);
  EXPECT_EQ(cfix, 0.0);
  QBRint32t sense = -1;
  QBR_getobjsense(task, &sense);
  EXPECT_EQ(sense, QBR_OBJECTIVE_SENSE_MINIMIZE);
}

TEST_F(Frame, RereadingKeepsTheMatrixStorageAtTheProblemsSize) {
  // The storage of the emptied matrix is reused, not left behind the new problem.
  const std::string path = std::string(QUBOR_DATA_DIR) + "/netlib-lp/afiro.mps.gz";
  for (int k = 0; k < 8; ++k) ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  QBRint64t nz = 0, room = 0;
  QBR_getnumanz64(task, &nz);
  QBR_getmaxnumanz64(task, &room);
  EXPECT_LE(room, 2 * nz);
}

// The symmetric-matrix store belongs to the problem: reading again, in any format, starts
// with an empty store instead of adding to the old matrices. A matrix the caller appended
// is gone after a read too.
TEST_F(Frame, RereadingStartsAnEmptyMatrixStore) {
  const std::string cbf = std::string(QUBOR_DATA_DIR) + "/cblib/2x3_3bars.cbf.gz";
  ASSERT_EQ(QBR_readdata(task, cbf.c_str()), QBR_RES_OK);
  QBRint64t once = 0, now = 0;
  QBR_getnumsymmat(task, &once);
  ASSERT_GT(once, 0);
  for (const char* name : {"s.task", "s.jtask", "s.cbf", "s.ptf"}) {
    const std::string p = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, p.c_str()), QBR_RES_OK) << name;
    const std::string text = read_text(p);
    for (int k = 0; k < 3; ++k) {
      ASSERT_EQ(name[2] == 'p' ? QBR_readptfstring(task, text.c_str()) : QBR_readdata(task, p.c_str()), QBR_RES_OK)
          << name;
      QBR_getnumsymmat(task, &now);
      EXPECT_EQ(now, once) << name;
    }
  }
  const QBRint32t i[] = {0};
  const double v[] = {1.0};
  QBRint64t idx = 0;
  ASSERT_EQ(QBR_appendsparsesymmat(task, 1, 1, i, i, v, &idx), QBR_RES_OK);
  const std::string mps = write_text("plain.mps", kSmall);
  ASSERT_EQ(QBR_readdata(task, mps.c_str()), QBR_RES_OK);
  QBR_getnumsymmat(task, &now);
  EXPECT_EQ(now, 0);
}

TEST_F(Frame, ReadInformationAndSummary) {
  const std::string path = write_text("info.mps", kSmall);
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  QBRint32t v = -1;
  QBR_getintinf(task, QBR_IINF_RD_NUMVAR, &v);
  EXPECT_EQ(v, 2);
  QBR_getintinf(task, QBR_IINF_RD_NUMCON, &v);
  EXPECT_EQ(v, 1);
  QBR_getintinf(task, QBR_IINF_RD_NUMINTVAR, &v);
  EXPECT_EQ(v, 1);
  QBR_getintinf(task, QBR_IINF_RD_PROTYPE, &v);
  EXPECT_EQ(v, QBR_PROBTYPE_LO);
  QBRint64t nz = -1;
  QBR_getlintinf(task, QBR_LIINF_RD_NUMANZ, &nz);
  EXPECT_EQ(nz, 2);
  double time = -1;
  QBR_getdouinf(task, QBR_DINF_RD_TIME, &time);
  EXPECT_GE(time, 0.0);
  msg.text.clear();
  ASSERT_EQ(QBR_readsummary(task, QBR_STREAM_MSG), QBR_RES_OK);
  EXPECT_EQ(msg.text.substr(0, msg.text.find("  Time")),
            "\nRead summary\n"
            "  Type             : LO (linear optimization problem)\n"
            "  Objective sense  : MINIMIZE\n"
            "  Scalar variables : 2           \n"
            "  Matrix variables : 0           \n"
            "  Constraints      : 1           \n"
            "  Cones            : 0           \n");
  EXPECT_EQ(QBR_readsummary(task, 7), QBR_RES_ERR_INVALID_STREAM);
}

TEST_F(Frame, WriteLogLinesAndUnwritableFile) {
  const std::string path = write_text("w.mps", kSmall);
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  log.text.clear();
  ASSERT_EQ(QBR_writedata(task, temp_path("w2.mps").c_str()), QBR_RES_OK);
  EXPECT_NE(log.text.find("Start writing.\n"), std::string::npos);
  EXPECT_NE(log.text.find("done writing. Time: "), std::string::npos);
  EXPECT_EQ(QBR_writedata(task, "/nonexistent/dir/w.mps"), QBR_RES_ERR_FILE_OPEN);
}

// Running out of memory anywhere in a read or a write gives QBR_RES_ERR_SPACE and leaves
// nothing behind; it never crashes.
TEST(FrameMemory, ReadsAndWritesUnderAllocationFailure) {
  const std::string mps = write_text(
      "space.mps",
      "NAME S\nROWS\n N obj\n L c\n L q\nCOLUMNS\n    x obj 1 c 1\n    y obj 2 q 1\nRHS\n    rhs c 4\n"
      "RANGES\n    ran c 2\nBOUNDS\n UP bnd x 3\nQUADOBJ\n    x x 1\n    y x 0.5\nQCMATRIX q\n    y y 2\n"
      "CSECTION k 0.0 QUAD\n    x\n    y\nENDATA\n");
  const std::string lp = "minimize\n obj: x + 2 y + [ x ^ 2 + x * y ]/2\nsubject to\n c: x + y <= 4\n"
                         "r:: 1 <= x - y <= 3\nbounds\n x <= 3\ngeneral\n y\nend\n";
  int finished = 0;
  for (long budget = 0; finished < 3; budget += 3) {
    Countdown c;
    c.budget = budget;
    QBRenv_t env = nullptr;
    QBRtask_t task = nullptr;
    if (QBR_makeenvalloc(&env, &c, Countdown::m, Countdown::c, Countdown::r, Countdown::f, nullptr) ==
            QBR_RES_OK &&
        QBR_maketask(env, 0, 0, &task) == QBR_RES_OK) {
      QBR_putintparam(task, QBR_IPAR_LOG, 0);
      const QBRrescode r1 = QBR_readdata(task, mps.c_str());
      const QBRrescode r2 = r1 == QBR_RES_OK ? QBR_writedata(task, temp_path("space_out.mps").c_str()) : r1;
      const QBRrescode r3 = QBR_readlpstring(task, lp.c_str());
      for (QBRrescode r : {r1, r2, r3}) EXPECT_TRUE(r == QBR_RES_OK || r == QBR_RES_ERR_SPACE) << r << " " << budget;
      if (r1 == QBR_RES_OK && r2 == QBR_RES_OK && r3 == QBR_RES_OK) ++finished;
    }
    QBR_deletetask(&task);
    QBR_deleteenv(&env);
    EXPECT_EQ(c.live, 0) << budget;
    ASSERT_LT(budget, 100000);
  }
}

TEST_F(Frame, CutCompressedFilesAreReadErrors) {
  // Written whole, then cut in the middle: the reader answers with the stream's failure, not
  // with a syntax error of the text that happened to arrive.
  const std::string path = std::string(QUBOR_DATA_DIR) + "/netlib-lp/afiro.mps.gz";
  ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  for (const char* name : {"cut.mps.gz", "cut.lp.gz", "cut.mps.zst", "cut.lp.zst"}) {
    const std::string whole = temp_path(name);
    ASSERT_EQ(QBR_writedata(task, whole.c_str()), QBR_RES_OK);
    const std::string bytes = read_text(whole);
    const std::string cut = write_text(name, bytes.substr(0, bytes.size() / 2));
    EXPECT_EQ(QBR_readdata(task, cut.c_str()), QBR_RES_ERR_FILE_READ) << name;
    EXPECT_EQ(last_message(), "An error occurred while reading the file '" + cut + "'.");
    ASSERT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_OK);
  }
}
