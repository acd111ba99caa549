// One malformed MPS file per error code of the reader: the code, the line named in the
// message, and the offending line, caret and debugging hint on the log stream.
#include <string>

#include "format_fixture.h"

namespace {

const char* kRows =
    "NAME          TESTLP\n"
    "ROWS\n"
    " N  COST\n"
    " L  LIM1\n"
    " G  LIM2\n";
const char* kColumns =
    "COLUMNS\n"
    "    X1        COST         1.0   LIM1         1.0\n"
    "    X2        COST         2.0   LIM2         1.0\n";

struct ErrorCase {
  const char* what;
  std::string text;
  QBRrescode code;
  std::string message;  // expected message, exactly
  int layout = QBR_MPS_FORMAT_RELAXED;
};

class MpsErrors : public FormatTest {
 protected:
  void check(const ErrorCase& c) {
    SCOPED_TRACE(c.what);
    err.text.clear();
    log.text.clear();
    ASSERT_EQ(QBR_putintparam(task, QBR_IPAR_READ_MPS_FORMAT, c.layout), QBR_RES_OK);
    const std::string path = write_text("err.mps", c.text);
    EXPECT_EQ(QBR_readdata(task, path.c_str()), c.code);
    EXPECT_EQ(last_message(), c.message);
    if (c.code != QBR_RES_ERR_MPS_FILE && c.code != QBR_RES_ERR_MPS_NON_SYMMETRIC_Q) {
      EXPECT_NE(log.text.find("^\nTurn debugging by setting QBR_IPAR_READ_DEBUG QBR_ON.\n"),
                std::string::npos)
          << log.text;
    }
  }
};

}  // namespace

TEST_F(MpsErrors, SectionsAndRows) {
  std::string base = std::string(kRows) + kColumns;
  check({"unknown section", base + "FOO\nENDATA\n", QBR_RES_ERR_MPS_INV_SEC_NAME,
         "The section name 'FOO' in line 9 of the MPS file is invalid."});
  check({"RHS before COLUMNS", std::string(kRows) + "RHS\n" + kColumns + "ENDATA\n",
         QBR_RES_ERR_MPS_INV_SEC_ORDER,
         "The section 'COLUMNS' in line 7 of the MPS file is not in the correct order."});
  check({"two ROWS", std::string(kRows) + "ROWS\nENDATA\n", QBR_RES_ERR_MPS_INV_SEC_ORDER,
         "The section 'ROWS' in line 6 of the MPS file is not in the correct order."});
  check({"row key", std::string(kRows) + " X  BAD\nENDATA\n", QBR_RES_ERR_MPS_INV_CON_KEY,
         "The constraint key 'X' in line 6 of the MPS file is invalid."});
  check({"row without name", std::string(kRows) + " E\nENDATA\n", QBR_RES_ERR_MPS_NULL_CON_NAME,
         "An empty constraint name is used in line 6 of the MPS file."});
  check({"row twice", std::string(kRows) + " E  LIM1\nENDATA\n", QBR_RES_ERR_MPS_MUL_CON_NAME,
         "The constraint name 'LIM1' is specified multiple times in the ROWS section (line 6 of the MPS "
         "file)."});
  check({"no N row", "NAME\nROWS\n E  R1\nCOLUMNS\n    X  R1  1\nENDATA\n", QBR_RES_ERR_MPS_NO_OBJECTIVE,
         "No objective is defined in an MPS file."});
  check({"missing ENDATA", base, QBR_RES_ERR_MPS_FILE,
         "An error occurred while reading the MPS file '" + temp_path("err.mps") + "'."});
}

TEST_F(MpsErrors, ObjectiveSenseAndName) {
  check({"sense word", "NAME\nOBJSENSE\n    MAXIMISE\n" + std::string(kRows).substr(5) + "ENDATA\n",
         QBR_RES_ERR_MPS_INVALID_OBJSENSE,
         "The objective sense 'MAXIMISE' in line 3 of the MPS file is invalid."});
  check({"objective name not an N row",
         "NAME\nOBJNAME\n    LIM1\nROWS\n N  COST\n L  LIM1\nCOLUMNS\nENDATA\n",
         QBR_RES_ERR_MPS_INVALID_OBJ_NAME,
         "The objective name 'LIM1' in line 3 of the MPS file is not the name of an N row."});
}

TEST_F(MpsErrors, Columns) {
  check({"undefined row", std::string(kRows) + "COLUMNS\n    X1  NOROW  1.0\nENDATA\n",
         QBR_RES_ERR_MPS_UNDEF_CON_NAME,
         "The undefined constraint name 'NOROW' occurred in line 7 of the MPS file."});
  check({"split column", std::string(kColumns).insert(0, kRows) + "    X1  LIM2  3.0\nENDATA\n",
         QBR_RES_ERR_MPS_SPLITTED_VAR,
         "The non-zero elements of the variable 'X1' are not specified consecutively (line 9 of the MPS "
         "file)."});
  check({"marker word", std::string(kRows) + "COLUMNS\n    M1  'MARKER'  'INTBEGIN'\nENDATA\n",
         QBR_RES_ERR_MPS_INV_MARKER, "The marker ''INTBEGIN'' in line 7 of the MPS file is invalid."});
  check({"value", std::string(kRows) + "COLUMNS\n    X1  COST  1.0x\nENDATA\n", QBR_RES_ERR_MPS_INV_FIELD,
         "Invalid field 4 occurred in line 7 of the MPS file."});
  check({"second value", std::string(kRows) + "COLUMNS\n    X1  COST  1.0  LIM1\nENDATA\n",
         QBR_RES_ERR_MPS_INV_FIELD, "Invalid field 6 occurred in line 7 of the MPS file."});
  check({"empty column name (strict)",
         std::string(kRows) + "COLUMNS\n              COST         1.0\nENDATA\n",
         QBR_RES_ERR_MPS_NULL_VAR_NAME, "An empty variable name is used in line 7 of the MPS file.",
         QBR_MPS_FORMAT_STRICT});
}

TEST_F(MpsErrors, TabsInStrictFields) {
  check({"tab in field 2", std::string(kRows) + "COLUMNS\n    X\t1      COST         1.0\nENDATA\n",
         QBR_RES_ERR_MPS_TAB_IN_FIELD2, "A tab char occurred in field 2 in line 7 of the MPS file.",
         QBR_MPS_FORMAT_STRICT});
  check({"tab in field 3", std::string(kRows) + "COLUMNS\n    X1        CO\tT        1.0\nENDATA\n",
         QBR_RES_ERR_MPS_TAB_IN_FIELD3, "A tab char occurred in field 3 in line 7 of the MPS file.",
         QBR_MPS_FORMAT_STRICT});
  // Fixed columns: name 4-11, name 14-21, number 24-35, name 39-46.
  const std::string line5 = std::string("    X1        COST    ") + "  " + "         1.0" + "   " + "LI\tM1";
  check({"tab in field 5", std::string(kRows) + "COLUMNS\n" + line5 + "\nENDATA\n",
         QBR_RES_ERR_MPS_TAB_IN_FIELD5, "A tab char occurred in field 5 in line 7 of the MPS file.",
         QBR_MPS_FORMAT_STRICT});
}

TEST_F(MpsErrors, RhsAndBounds) {
  std::string base = std::string(kRows) + kColumns;
  check({"rhs row", base + "RHS\n    RHS  NOROW  1.0\nENDATA\n", QBR_RES_ERR_MPS_UNDEF_CON_NAME,
         "The undefined constraint name 'NOROW' occurred in line 10 of the MPS file."});
  check({"bound key", base + "BOUNDS\n XX BND  X1  1.0\nENDATA\n", QBR_RES_ERR_MPS_INV_BOUND_KEY,
         "The bound key 'XX' in line 10 of the MPS file is invalid."});
  check({"bound column", base + "BOUNDS\n UP BND  X9  1.0\nENDATA\n", QBR_RES_ERR_MPS_UNDEF_VAR_NAME,
         "The undefined variable name 'X9' occurred in line 10 of the MPS file."});
  check({"bound value", base + "BOUNDS\n UP BND  X1  one\nENDATA\n", QBR_RES_ERR_MPS_INV_FIELD,
         "Invalid field 4 occurred in line 10 of the MPS file."});
}

TEST_F(MpsErrors, QuadraticSections) {
  std::string base = std::string(kRows) + kColumns;
  check({"second objective Q", base + "QUADOBJ\n    X1  X1  1.0\nQMATRIX\n    X2  X2  1.0\nENDATA\n",
         QBR_RES_ERR_MPS_MUL_QOBJ,
         "The Q term in the objective is specified again in line 11 of the MPS file."});
  check({"second QSECTION", base + "QSECTION LIM1\n    X1  X1  1.0\nQSECTION LIM1\n    X2  X2  1.0\nENDATA\n",
         QBR_RES_ERR_MPS_MUL_QSEC,
         "Multiple QSECTIONs are specified for the constraint 'LIM1' (line 11 of the MPS file)."});
  check({"duplicate element", base + "QUADOBJ\n    X1  X2  1.0\n    X2  X1  1.0\nENDATA\n",
         QBR_RES_ERR_MPS_DUPLICATE_Q_ELEMENT,
         "The element ('X2','X1') is specified more than once in a Q matrix (line 11 of the MPS file)."});
  check({"not symmetric", base + "QMATRIX\n    X1  X2  1.0\n    X2  X1  2.0\nENDATA\n",
         QBR_RES_ERR_MPS_NON_SYMMETRIC_Q,
         "The Q matrix is not symmetric at the element ('X1','X2') (line 10 of the MPS file)."});
}

TEST_F(MpsErrors, ConeSections) {
  std::string base = std::string(kRows) + kColumns + "    X3        COST         1.0\n";
  check({"cone type", base + "CSECTION  K1  0.0  QUADX\n    X1\nENDATA\n", QBR_RES_ERR_MPS_CONE_TYPE,
         "The cone type 'QUADX' in line 10 of the MPS file is invalid."});
  check({"cone name twice",
         base + "CSECTION  K1  0.0  QUAD\n    X1\nCSECTION  K1  0.0  QUAD\n    X2\nENDATA\n",
         QBR_RES_ERR_MPS_MUL_CSEC, "The CSECTION name 'K1' is used again in line 12 of the MPS file."});
  check({"member twice", base + "CSECTION  K1  0.0  QUAD\n    X1\n    X1\nENDATA\n",
         QBR_RES_ERR_MPS_CONE_REPEAT,
         "The variable 'X1' is repeated within the CSECTION (line 12 of the MPS file)."});
  check({"member of two cones",
         base + "CSECTION  K1  0.0  QUAD\n    X1\nCSECTION  K2  0.0  QUAD\n    X1\nENDATA\n",
         QBR_RES_ERR_MPS_CONE_OVERLAP,
         "The variable 'X1' is specified to be a member of several cones (line 13 of the MPS file)."});
}

TEST_F(MpsErrors, CaretStandsUnderTheField) {
  const std::string path =
      write_text("caret.mps", std::string(kRows) + "COLUMNS\n    X1  NOROW  1.0\nENDATA\n");
  EXPECT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_ERR_MPS_UNDEF_CON_NAME);
  EXPECT_NE(log.text.find("    X1  NOROW  1.0\n        ^\n"), std::string::npos) << log.text;
}

TEST_F(MpsErrors, FailedReadKeepsCompleteRowsAndColumns) {
  const std::string path =
      write_text("partial.mps", std::string(kRows) + kColumns + "    X3  NOROW  1.0\nENDATA\n");
  EXPECT_EQ(QBR_readdata(task, path.c_str()), QBR_RES_ERR_MPS_UNDEF_CON_NAME);
  EXPECT_EQ(numcon(), 2);
  EXPECT_EQ(numvar(), 2);
}
