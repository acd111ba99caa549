// A small mutating driver for the fuzz targets where libFuzzer is not available.
//
//   fuzz_X [-runs=N] [-seed=S] FILE...
//
// Reads the seed files (gzip files are not unpacked: pass plain text), then N times picks a
// seed, applies 1 to 8 random mutations (byte flips, insertions, deletions, copies of a line
// elsewhere, cutting the text, replacing a token by an interesting word) and runs the target.
// A crash is the sanitizers' report; the input that caused it is saved first as
// crash-input.txt.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

namespace {

std::string mutate(std::string s, std::mt19937_64& rng) {
  static const char* kWords[] = {"ROWS",       "COLUMNS",   "RHS",       "RANGES",    "BOUNDS",    "ENDATA",
                                 "QUADOBJ",    "QMATRIX",   "QCMATRIX ", "QSECTION ", "CSECTION ", "'MARKER'",
                                 "'INTORG'",   "'INTEND'",  " UP ",      " FR ",      " BV ",      "1e308",
                                 "-1e30",      "nan",       "inf",       "\t",        "\r",        "\n",
                                 "subject to", "bounds",    "general",   "end",       "[",         "]/2",
                                 "::",         "<=",        ">=",        "^ 2",       "*",         "\"",
                                 "free",       "-infinity", "0",         "PPOW",      "QUAD"};
  const int n = 1 + static_cast<int>(rng() % 8);
  for (int k = 0; k < n; ++k) {
    const size_t pos = s.empty() ? 0 : rng() % (s.size() + 1);
    switch (rng() % 7) {
      case 0:
        if (!s.empty() && pos < s.size()) s[pos] = static_cast<char>(rng() % 256);
        break;
      case 1:
        s.insert(pos, 1, static_cast<char>(rng() % 128));
        break;
      case 2:
        if (pos < s.size()) s.erase(pos, 1 + rng() % 16);
        break;
      case 3: {
        // Copy a line to another place.
        size_t b = s.rfind('\n', pos);
        b = b == std::string::npos ? 0 : b + 1;
        size_t e = s.find('\n', b);
        std::string line = s.substr(b, e == std::string::npos ? std::string::npos : e - b + 1);
        s.insert(s.empty() ? 0 : rng() % (s.size() + 1), line);
        break;
      }
      case 4:
        s.resize(pos);
        break;
      default: {
        const char* w = kWords[rng() % (sizeof kWords / sizeof kWords[0])];
        size_t e = pos;
        while (e < s.size() && s[e] != ' ' && s[e] != '\n') ++e;
        s.replace(pos, e - pos, w);
      }
    }
  }
  return s;
}

}  // namespace

int main(int argc, char** argv) {
  long runs = 10000;
  unsigned long seed = 1;
  std::vector<std::string> seeds;
  for (int k = 1; k < argc; ++k) {
    if (!std::strncmp(argv[k], "-runs=", 6)) {
      runs = std::atol(argv[k] + 6);
    } else if (!std::strncmp(argv[k], "-seed=", 6)) {
      seed = std::strtoul(argv[k] + 6, nullptr, 10);
    } else {
      std::ifstream in(argv[k], std::ios::binary);
      std::stringstream ss;
      ss << in.rdbuf();
      seeds.push_back(ss.str());
    }
  }
  if (seeds.empty()) seeds.push_back("");
  std::mt19937_64 rng(seed);
  for (long r = 0; r < runs; ++r) {
    std::string input = mutate(seeds[rng() % seeds.size()], rng);
    { std::ofstream("crash-input.txt", std::ios::binary) << input; }
    LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(input.data()), input.size());
    if ((r + 1) % 1000 == 0) std::fprintf(stderr, "runs: %ld\n", r + 1);
  }
  std::remove("crash-input.txt");
  return 0;
}
