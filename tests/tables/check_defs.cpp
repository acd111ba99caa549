// Consistency of the interface tables in src/tables: response codes, enumerations, callback
// codes and information items. The tables generate the public header, the name lookups and
// the reporters' messages, so a slip here (a lost row, a renumbered value, a stray printf
// conversion in a template) breaks the interface silently; these checks catch it at build time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

// ---- rows of the tables, expanded from the .def files ------------------------------------

struct Response {
  const char* sym;
  int value;
  const char* desc;
  const char* tmpl;
};

constexpr Response kResponses[] = {
#define QBR_RESPONSE(sym, value, desc, tmpl) {#sym, value, desc, tmpl},
#include "tables/response_codes.def"
#undef QBR_RESPONSE
};

enum class Ev { Begin, Value, End };

struct EnumEvent {
  Ev kind;
  const char* group;
  const char* name;  // the C tag for Begin, the symbol for Value
  long long value;
  const char* text;
};

constexpr EnumEvent kEnumEvents[] = {
#define QBR_ENUM_BEGIN(group, ctype) {Ev::Begin, #group, #ctype, 0, ""},
#define QBR_ENUM_VALUE(group, sym, value, text) {Ev::Value, #group, #sym, value, text},
#define QBR_ENUM_END(group) {Ev::End, #group, "", 0, ""},
#include "tables/enums.def"
#undef QBR_ENUM_BEGIN
#undef QBR_ENUM_VALUE
#undef QBR_ENUM_END
};

struct Callback {
  const char* name;
  int value;
};

constexpr Callback kCallbacks[] = {
#define QBR_CALLBACK_CODE(name, value) {#name, value},
#include "tables/callback_codes.def"
#undef QBR_CALLBACK_CODE
};

constexpr const char* kDouInfo[] = {
#define QBR_DINFO(name) #name,
#include "tables/dou_info.def"
#undef QBR_DINFO
};

constexpr const char* kIntInfo[] = {
#define QBR_IINFO(name) #name,
#include "tables/int_info.def"
#undef QBR_IINFO
};

constexpr const char* kLintInfo[] = {
#define QBR_LIINFO(name) #name,
#include "tables/lint_info.def"
#undef QBR_LIINFO
};

struct IntParam {
  const char* name;
  long long def;
  int kind;
  long long lo;
  long long hi;
  const char* group;
};

constexpr IntParam kIntParams[] = {
#define QBR_IPARAM(name, def, kind, lo, hi, group) {#name, def, kind, lo, hi, #group},
#include "tables/int_params.def"
#undef QBR_IPARAM
};

// ---- helpers --------------------------------------------------------------------------------

// The class rule of QBR_getresponseclass: 0 ok, below 1000 warning, above 9999 termination.
enum class Cls { Ok, Wrn, Err, Trm };
Cls ClassOf(int v) {
  if (v == 0) return Cls::Ok;
  if (v < 1000) return Cls::Wrn;
  if (v > 9999) return Cls::Trm;
  return Cls::Err;
}

const Response* FindResponse(int value) {
  for (const auto& r : kResponses)
    if (r.value == value) return &r;
  return nullptr;
}

// Returns an empty string when every conversion of the template is one the reporter knows,
// else a description of the first bad one. "%L" (a line number) is allowed only where asked.
std::string BadPlaceholder(const std::string& t, bool allow_line) {
  for (size_t i = 0; i < t.size(); ++i) {
    if (t[i] != '%') continue;
    if (i + 1 >= t.size()) return "lone % at the end";
    const char c = t[i + 1];
    if (c == 's' || c == 'i' || c == 'l' || c == '%') {
      ++i;
    } else if (c == 'L' && allow_line) {
      ++i;
    } else if (t.compare(i + 1, 6, "{wjp}e") == 0) {
      i += 6;
    } else {
      return "unknown conversion %" + std::string(1, c) + " at offset " + std::to_string(i);
    }
  }
  return "";
}

std::string Lower(const char* s) {
  std::string r(s);
  for (auto& c : r) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return r;
}

struct Group {
  std::string ctype;
  std::vector<const EnumEvent*> values;
};

// Walks the enumeration events; checks the BEGIN/VALUE/END nesting on the way.
std::map<std::string, Group> Groups() {
  std::map<std::string, Group> groups;
  const char* open = nullptr;
  for (const auto& e : kEnumEvents) {
    switch (e.kind) {
      case Ev::Begin:
        EXPECT_EQ(open, nullptr) << "group " << e.group << " opened inside " << open;
        EXPECT_EQ(groups.count(e.group), 0u) << "group " << e.group << " defined twice";
        open = e.group;
        groups[e.group].ctype = e.name;
        break;
      case Ev::Value:
        EXPECT_TRUE(open != nullptr && std::strcmp(open, e.group) == 0)
            << e.name << " is tagged " << e.group << " but stands in " << (open ? open : "no group");
        groups[e.group].values.push_back(&e);
        break;
      case Ev::End:
        EXPECT_TRUE(open != nullptr && std::strcmp(open, e.group) == 0)
            << "END of " << e.group << " closes " << (open ? open : "nothing");
        open = nullptr;
        break;
    }
  }
  EXPECT_EQ(open, nullptr) << "group " << open << " is never closed";
  return groups;
}

// ---- response codes -------------------------------------------------------------------------

TEST(ResponseTable, CountsPerClass) {
  ASSERT_EQ(std::size(kResponses), 430u);
  std::map<Cls, int> n;
  for (const auto& r : kResponses) ++n[ClassOf(r.value)];
  EXPECT_EQ(n[Cls::Ok], 1);
  EXPECT_EQ(n[Cls::Wrn], 55);
  EXPECT_EQ(n[Cls::Err], 362);
  EXPECT_EQ(n[Cls::Trm], 12);
}

TEST(ResponseTable, ErrorCountsPerBand) {
  // The error codes are grouped by topic into value bands; a row lost or moved shows up here.
  const struct {
    int lo, hi, count;
  } bands[] = {{1000, 1099, 35}, {1100, 1199, 58}, {1200, 1299, 74}, {1300, 1499, 43},
               {1500, 1999, 27}, {2000, 2999, 15}, {3000, 3999, 32}, {4000, 6999, 16},
               {7000, 7999, 58}, {8000, 9999, 4}};
  for (const auto& b : bands) {
    const auto n = std::count_if(std::begin(kResponses), std::end(kResponses),
                                 [&](const Response& r) { return r.value >= b.lo && r.value <= b.hi; });
    EXPECT_EQ(n, b.count) << "band " << b.lo << "-" << b.hi;
  }
  EXPECT_EQ(kResponses[1].value, 50);  // the first warning
  EXPECT_EQ(kResponses[std::size(kResponses) - 1].value, 10031);
}

TEST(ResponseTable, ValuesStrictlyAscendingAndNamesUnique) {
  std::set<std::string> names;
  for (size_t i = 0; i < std::size(kResponses); ++i) {
    if (i > 0) {
      EXPECT_LT(kResponses[i - 1].value, kResponses[i].value) << kResponses[i].sym;
    }
    EXPECT_TRUE(names.insert(kResponses[i].sym).second) << "duplicate " << kResponses[i].sym;
  }
}

TEST(ResponseTable, NamePrefixMatchesClass) {
  for (const auto& r : kResponses) {
    const std::string s = r.sym;
    switch (ClassOf(r.value)) {
      case Cls::Ok: EXPECT_EQ(s, "RES_OK"); break;
      case Cls::Wrn: EXPECT_EQ(s.rfind("RES_WRN_", 0), 0u) << s << " = " << r.value; break;
      case Cls::Err: EXPECT_EQ(s.rfind("RES_ERR_", 0), 0u) << s << " = " << r.value; break;
      case Cls::Trm: EXPECT_EQ(s.rfind("RES_TRM_", 0), 0u) << s << " = " << r.value; break;
    }
  }
}

TEST(ResponseTable, TemplatesUseOnlyReporterPlaceholders) {
  for (const auto& r : kResponses) {
    const bool lp_line = std::strcmp(r.sym, "RES_ERR_LP_FORMAT") == 0;
    EXPECT_EQ(BadPlaceholder(r.tmpl, lp_line), "") << r.sym << ": " << r.tmpl;
    // A description with no template is the message itself and goes through the formatter
    // with no arguments: it must hold no conversion at all.
    EXPECT_EQ(std::strchr(r.desc, '%'), nullptr) << r.sym << ": " << r.desc;
  }
}

TEST(ResponseTable, TextsAreSingleLinesAndEveryCodeHasAMessage) {
  for (const auto& r : kResponses) {
    EXPECT_EQ(std::strchr(r.desc, '\n'), nullptr) << r.sym;
    EXPECT_EQ(std::strchr(r.tmpl, '\n'), nullptr) << r.sym;
    EXPECT_LT(std::strlen(r.desc), 1024u) << r.sym;
    EXPECT_LT(std::strlen(r.tmpl), 1024u) << r.sym;
    // Only the MPS objective-name error has no description of its own; its template then
    // must carry the message.
    if (std::strcmp(r.sym, "RES_ERR_MPS_INVALID_OBJ_NAME") == 0) {
      EXPECT_STREQ(r.desc, "");
      EXPECT_STRNE(r.tmpl, "");
    } else {
      EXPECT_STRNE(r.desc, "") << r.sym;
    }
  }
}

TEST(ResponseTable, FixedTextsAreExact) {
  const struct {
    int value;
    const char* sym;
    const char* desc;
  } fixed[] = {
      {0, "RES_OK", "No error occurred."},
      {1051, "RES_ERR_SPACE", "Out of space."},
      {1061, "RES_ERR_NULL_TASK", "task is a null pointer."},
      {1117, "RES_ERR_MPS_CONE_TYPE", "Invalid cone type specified in a  CSECTION."},
      {1159, "RES_ERR_READ_LP_MISSING_END_TAG", "Syntax error in LP fil. Possibly missing End tag."},
      {3999, "RES_ERR_API_INTERNAL", "An internal fatal error occurred in an interface function.:w"},
      {5010, "RES_ERR_MIO_INTERNAL",
       "A fatal error occurred in the mixed integer optimizer.  Please contact QUBOR support."},
      {8002, "RES_ERR_SERVER_STATUS", "Server returned non-ok status code"},
      {10007, "RES_TRM_USER_CALLBACK",
       "The user-defined progress callback function terminated the optimization."},
  };
  for (const auto& f : fixed) {
    const Response* r = FindResponse(f.value);
    ASSERT_NE(r, nullptr) << f.value;
    EXPECT_STREQ(r->sym, f.sym);
    EXPECT_STREQ(r->desc, f.desc);
  }
}

TEST(ResponseTable, FixedTemplatesAreExact) {
  const struct {
    int value;
    const char* tmpl;
  } fixed[] = {
      {57, "A large value of %{wjp}e has been specified in c for variable '%s' (%i)."},
      {62, "The A matrix contains a large value of %{wjp}e in constraint '%s' (%i) at variable '%s' (%i)."},
      {1203, "The index value %l occurring in argument '%s' is too small."},
      {1204, "The index value %l occurring in argument '%s' is too large."},
      {1207, "The parameter name '%s' is invalid for an int parameter."},
      {1210, "The parameter index %i is invalid for a parameter of type %s."},
      {1179, "Inconsistent data in JSON Task in section \"%s\""},
      {3940, "The row index %i specified for sparse symmetric is invalid. The valid range is [%i,%i[."},
  };
  for (const auto& f : fixed) {
    const Response* r = FindResponse(f.value);
    ASSERT_NE(r, nullptr) << f.value;
    EXPECT_STREQ(r->tmpl, f.tmpl) << r->sym;
  }
}

// ---- callback codes -------------------------------------------------------------------------

TEST(CallbackTable, NinetyCodesWithTheirGaps) {
  ASSERT_EQ(std::size(kCallbacks), 90u);
  EXPECT_STREQ(kCallbacks[0].name, "BEGIN_BI");
  EXPECT_EQ(kCallbacks[0].value, 0);
  EXPECT_STREQ(kCallbacks[89].name, "WRITE_OPF");
  EXPECT_EQ(kCallbacks[89].value, 92);
  std::vector<int> gaps;
  for (size_t i = 1; i < std::size(kCallbacks); ++i) {
    ASSERT_LT(kCallbacks[i - 1].value, kCallbacks[i].value) << kCallbacks[i].name;
    for (int v = kCallbacks[i - 1].value + 1; v < kCallbacks[i].value; ++v) gaps.push_back(v);
  }
  EXPECT_EQ(gaps, (std::vector<int>{10, 39, 63}));
  // The driver's own codes, which users key on.
  std::map<std::string, int> byname;
  for (const auto& c : kCallbacks) EXPECT_TRUE(byname.emplace(c.name, c.value).second) << c.name;
  EXPECT_EQ(byname["BEGIN_OPTIMIZER"], 12);
  EXPECT_EQ(byname["END_OPTIMIZER"], 41);
  EXPECT_EQ(byname["BEGIN_MIO"], 11);
  EXPECT_EQ(byname["IM_LU"], 64);
}

// ---- information items ----------------------------------------------------------------------

template <size_t N>
void ExpectSortedByLowerCase(const char* const (&names)[N], const char* family) {
  for (size_t i = 1; i < N; ++i)
    EXPECT_LT(Lower(names[i - 1]), Lower(names[i]))
        << family << " rows " << i - 1 << " and " << i << ": " << names[i - 1] << ", " << names[i];
}

TEST(InfoTables, CountsAndOrder) {
  ASSERT_EQ(std::size(kDouInfo), 90u);
  ASSERT_EQ(std::size(kIntInfo), 101u);
  ASSERT_EQ(std::size(kLintInfo), 13u);
  ExpectSortedByLowerCase(kDouInfo, "dou_info");
  ExpectSortedByLowerCase(kIntInfo, "int_info");
  ExpectSortedByLowerCase(kLintInfo, "lint_info");
}

TEST(InfoTables, FixedPositions) {
  EXPECT_STREQ(kDouInfo[0], "BI_CLEAN_DUAL_TIME");
  EXPECT_STREQ(kDouInfo[31], "OPTIMIZER_TIME");
  EXPECT_STREQ(kDouInfo[40], "RD_TIME");
  EXPECT_STREQ(kDouInfo[89], "TO_CONIC_TIME");
  // "_" sorts before letters: OPT_NUMCON and OPT_NUMVAR precede OPTIMIZE_RESPONSE.
  EXPECT_STREQ(kIntInfo[69], "OPT_NUMCON");
  EXPECT_STREQ(kIntInfo[70], "OPT_NUMVAR");
  EXPECT_STREQ(kIntInfo[71], "OPTIMIZE_RESPONSE");
  EXPECT_STREQ(kIntInfo[100], "STO_NUM_A_REALLOC");
  EXPECT_STREQ(kLintInfo[11], "RD_NUMANZ");
  EXPECT_STREQ(kLintInfo[12], "RD_NUMQNZ");
}

// ---- enumerations ---------------------------------------------------------------------------

TEST(EnumTable, GroupsWellFormedWithUniqueAscendingValues) {
  const auto groups = Groups();
  std::set<std::string> ctypes;
  for (const auto& [id, g] : groups) {
    EXPECT_FALSE(g.values.empty()) << id;
    EXPECT_TRUE(ctypes.insert(g.ctype).second) << "C tag " << g.ctype << " used twice";
    for (size_t i = 1; i < g.values.size(); ++i)
      EXPECT_LT(g.values[i - 1]->value, g.values[i]->value)
          << id << ": " << g.values[i - 1]->name << ", " << g.values[i]->name;
  }
}

TEST(EnumTable, DocumentedValuesAndTexts) {
  std::map<std::string, const EnumEvent*> sym;
  for (const auto& e : kEnumEvents)
    if (e.kind == Ev::Value) sym[e.name] = &e;
  const struct {
    const char* name;
    long long value;
    const char* text;
  } expect[] = {
      {"RESPONSE_TRM", 2, ""},          {"RESPONSE_ERR", 3, ""},
      {"BK_LO", 0, "LO"},               {"BK_RA", 4, "RA"},
      {"CT_ZERO", 6, "ZERO"},           {"STREAM_WRN", 3, ""},
      {"PAR_STR_TYPE", 3, "string"},    {"INF_LINT_TYPE", 2, ""},
      {"OPTIMIZER_FREE", 2, ""},        {"OPTIMIZER_PRIMAL_SIMPLEX", 6, ""},
      {"OBJECTIVE_SENSE_MAXIMIZE", 1, "MAXIMIZE"},
      {"SOL_ITG", 2, "integer"},        {"SK_UNK", 0, "UN"},
      {"SK_INF", 6, "**"},              {"SOL_STA_PRIM_ILLPOSED_CER", 7, "PRIMAL_ILLPOSED_CER"},
      {"SOL_STA_INTEGER_OPTIMAL", 9, "INTEGER_OPTIMAL"},
      {"PRO_STA_PRIM_AND_DUAL_FEAS", 1, "PRIMAL_AND_DUAL_FEASIBLE"},
      {"PRO_STA_PRIM_INFEAS_OR_UNBOUNDED", 8, "PRIMAL_INFEASIBLE_OR_UNBOUNDED"},
      {"PROBTYPE_MIXED", 4, "MIXED (mixed nonlinear and conic optimization problem)"},
      {"SOL_ITEM_SNX", 7, "snx"},       {"DATA_FORMAT_JSON_TASK", 8, ".jtask"},
      {"COMPRESS_ZSTD", 3, ".zst"},     {"MPS_FORMAT_FREE", 2, ""},
      {"ORDER_METHOD_NONE", 5, ""},     {"STARTING_POINT_SATISFY_BOUNDS", 3, ""},
      {"SCALING_NONE", 1, ""},          {"INTPNT_HOTSTART_PRIMAL_DUAL", 3, ""},
      {"MIO_MODE_IGNORED", 0, ""},      {"MIO_NODE_SELECTION_PSEUDO", 3, ""},
      {"BRANCH_DIR_PSEUDOCOST", 7, ""}, {"VAR_TYPE_INT", 1, "int"},
      {"ON", 1, ""},                    {"OFF", 0, ""},
  };
  for (const auto& x : expect) {
    ASSERT_EQ(sym.count(x.name), 1u) << x.name;
    EXPECT_EQ(sym[x.name]->value, x.value) << x.name;
    EXPECT_STREQ(sym[x.name]->text, x.text) << x.name;
  }
  // Solution and problem statuses, status keys and bound keys are numbered densely from 0,
  // in the documented order; their string conversions index by value.
  const auto groups = Groups();
  for (const char* id : {"BOUNDKEY", "CONETYPE", "STAKEY", "SOLSTA", "PROSTA", "SOLTYPE", "SOLITEM",
                         "OPTIMIZER", "PROBTYPE", "DATAFORMAT"}) {
    ASSERT_EQ(groups.count(id), 1u) << id;
    const auto& v = groups.at(id).values;
    for (size_t i = 0; i < v.size(); ++i) EXPECT_EQ(v[i]->value, static_cast<long long>(i)) << id;
  }
}

TEST(EnumTable, IntegerParameterGroupsNameEveryAdmissibleValue) {
  // QBR_iparvaltosymnam turns a parameter value into the symbol of the parameter's group, and
  // a parameter file may give the value by that symbol: every value a named parameter can
  // take, and its default, must have a symbol.
  const auto groups = Groups();
  for (const auto& p : kIntParams) {
    if (std::strcmp(p.group, "NONE") == 0) continue;
    ASSERT_EQ(groups.count(p.group), 1u) << p.name << " refers to the unknown group " << p.group;
    std::set<long long> named;
    for (const auto* e : groups.at(p.group).values) named.insert(e->value);
    EXPECT_TRUE(p.kind == 2 || p.kind == 4) << p.name << ": a named parameter has both bounds";
    EXPECT_EQ(named.count(p.def), 1u) << p.name << " default " << p.def;
    for (long long v = p.lo; v <= p.hi && v - p.lo < 64; ++v)
      EXPECT_EQ(named.count(v), 1u) << p.name << " value " << v << " has no name in " << p.group;
  }
}

// ---- all constants together -----------------------------------------------------------------

TEST(AllTables, ConstantNamesAreUnique) {
  // Every table lands in one C namespace of enumeration constants in the public header.
  std::set<std::string> seen;
  auto add = [&](const std::string& n) { EXPECT_TRUE(seen.insert(n).second) << "QBR_" << n; };
  for (const auto& r : kResponses) add(r.sym);
  for (const auto& e : kEnumEvents)
    if (e.kind == Ev::Value) add(e.name);
  for (const auto& c : kCallbacks) add(std::string("CALLBACK_") + c.name);
  for (const char* n : kDouInfo) add(std::string("DINF_") + n);
  for (const char* n : kIntInfo) add(std::string("IINF_") + n);
  for (const char* n : kLintInfo) add(std::string("LIINF_") + n);
  for (const auto& p : kIntParams) add(std::string("IPAR_") + p.name);
}

}  // namespace
