// Writes the constant section of include/qubor.h from the tables in src/tables.
//
//   gen_header HEADER          rewrite the section between the BEGIN/END GENERATED markers
//   gen_header HEADER --check  exit 1 (and say so) when the header's section differs
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

namespace {

constexpr const char* kBegin = "/* BEGIN GENERATED CONSTANTS";
constexpr const char* kEnd = "/* END GENERATED CONSTANTS */";

struct Out {
  std::ostringstream s;
  void open(const char* comment, const char* tag) { s << "\n/* " << comment << " */\nenum " << tag << " {\n"; }
  void item(const std::string& name, long long value) { s << "  " << name << " = " << value << ",\n"; }
  void close() { s << "};\n"; }
};

std::string generate() {
  Out o;
  o.open("Response codes.", "QBRrescode_e");
#define QBR_RESPONSE(sym, value, desc, tmpl) o.item("QBR_" #sym, value);
#include "tables/response_codes.def"
#undef QBR_RESPONSE
  o.close();

#define QBR_ENUM_BEGIN(group, ctype) o.open(#group, #ctype);
#define QBR_ENUM_VALUE(group, sym, value, text) o.item("QBR_" #sym, value);
#define QBR_ENUM_END(group) o.close();
#include "tables/enums.def"
#undef QBR_ENUM_BEGIN
#undef QBR_ENUM_VALUE
#undef QBR_ENUM_END

  long long i = 0;
  o.open("Integer parameters.", "QBRiparam_e");
#define QBR_IPARAM(name, def, kind, lo, hi, group) o.item("QBR_IPAR_" #name, i++);
#include "tables/int_params.def"
#undef QBR_IPARAM
  o.close();
  i = 0;
  o.open("Double parameters.", "QBRdparam_e");
#define QBR_DPARAM(name, def, kind, lo, hi) o.item("QBR_DPAR_" #name, i++);
#include "tables/dou_params.def"
#undef QBR_DPARAM
  o.close();
  i = 0;
  o.open("String parameters.", "QBRsparam_e");
#define QBR_SPARAM(name, def) o.item("QBR_SPAR_" #name, i++);
#include "tables/str_params.def"
#undef QBR_SPARAM
  o.close();
  i = 0;
  o.open("Real information items.", "QBRdinfitem_e");
#define QBR_DINFO(name) o.item("QBR_DINF_" #name, i++);
#include "tables/dou_info.def"
#undef QBR_DINFO
  o.close();
  i = 0;
  o.open("Integer information items.", "QBRiinfitem_e");
#define QBR_IINFO(name) o.item("QBR_IINF_" #name, i++);
#include "tables/int_info.def"
#undef QBR_IINFO
  o.close();
  i = 0;
  o.open("Long integer information items.", "QBRliinfitem_e");
#define QBR_LIINFO(name) o.item("QBR_LIINF_" #name, i++);
#include "tables/lint_info.def"
#undef QBR_LIINFO
  o.close();
  o.open("Progress callback codes.", "QBRcallbackcode_e");
#define QBR_CALLBACK_CODE(name, value) o.item("QBR_CALLBACK_" #name, value);
#include "tables/callback_codes.def"
#undef QBR_CALLBACK_CODE
  o.close();
  return o.s.str();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: gen_header HEADER [--check]\n";
    return 2;
  }
  const bool check = argc > 2 && std::strcmp(argv[2], "--check") == 0;
  std::ifstream in(argv[1], std::ios::binary);
  if (!in) {
    std::cerr << "gen_header: cannot read " << argv[1] << "\n";
    return 2;
  }
  std::stringstream buf;
  buf << in.rdbuf();
  const std::string text = buf.str();
  size_t b = text.find(kBegin);
  size_t e = text.find(kEnd);
  if (b == std::string::npos || e == std::string::npos || e < b) {
    std::cerr << "gen_header: markers not found in " << argv[1] << "\n";
    return 2;
  }
  size_t body = text.find('\n', b) + 1;
  const std::string wanted = generate() + "\n";
  if (check) {
    if (text.compare(body, e - body, wanted) != 0) {
      std::cerr << "gen_header: " << argv[1] << " is out of date; build the target update_header\n";
      return 1;
    }
    return 0;
  }
  std::string updated = text.substr(0, body) + wanted + text.substr(e);
  if (updated != text) {
    std::ofstream out(argv[1], std::ios::binary | std::ios::trunc);
    out << updated;
  }
  return 0;
}
