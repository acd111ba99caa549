// A small mutating driver for the fuzz targets where libFuzzer is not available.
//
//   fuzz_X [-runs=N] [-max_total_time=S] [-seed=S] [-dict=FILE] FILE...
//
// Reads the seed files (gzip files are not unpacked: pass plain text), then N times (or for
// S seconds, whichever ends first) picks a seed, applies 1 to 8 random mutations (byte flips,
// insertions, deletions, copies of a line elsewhere, cutting the text, replacing a token by
// an interesting word: a built-in one or one of the dictionary's quoted words) and runs the
// target.
// A crash is the sanitizers' report; the input that caused it is saved first as
// crash-input.txt.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

namespace {

// The quoted words of a dictionary file in libFuzzer's form ("word", with \xNN escapes).
std::vector<std::string> dictionary_words(const char* path) {
  std::vector<std::string> out;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) {
    const size_t b = line.find('"'), e = line.rfind('"');
    if (b == std::string::npos || e <= b) continue;
    std::string w;
    for (size_t k = b + 1; k < e; ++k) {
      if (line[k] == '\\' && k + 3 < e && line[k + 1] == 'x') {
        w += static_cast<char>(std::strtol(line.substr(k + 2, 2).c_str(), nullptr, 16));
        k += 3;
      } else {
        w += line[k];
      }
    }
    out.push_back(w);
  }
  return out;
}

std::vector<std::string> dict;

std::string mutate(std::string s, std::mt19937_64& rng) {
  static const char* kWords[] = {"ROWS",       "COLUMNS",   "RHS",       "RANGES",    "BOUNDS",    "ENDATA",
                                 "QUADOBJ",    "QMATRIX",   "QCMATRIX ", "QSECTION ", "CSECTION ", "'MARKER'",
                                 "'INTORG'",   "'INTEND'",  " UP ",      " FR ",      " BV ",      "1e308",
                                 "-1e30",      "nan",       "inf",       "\t",        "\r",        "\n",
                                 "subject to", "bounds",    "general",   "end",       "[",         "]/2",
                                 "::",         "<=",        ">=",        "^ 2",       "*",         "\"",
                                 "free",       "-infinity", "0",         "PPOW",      "QUAD",      "VAR",
                                 "CON",        "ACOORD",    "@0:POW",    "EXP*",      "PSDCON",    "HCOORD"};
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
        const size_t fixed = sizeof kWords / sizeof kWords[0];
        const size_t pick = rng() % (fixed + dict.size());
        const std::string w = pick < fixed ? kWords[pick] : dict[pick - fixed];
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
  double seconds = 0.0;  // no limit
  unsigned long seed = 1;
  std::vector<std::string> seeds;
  for (int k = 1; k < argc; ++k) {
    if (!std::strncmp(argv[k], "-runs=", 6)) {
      runs = std::atol(argv[k] + 6);
    } else if (!std::strncmp(argv[k], "-max_total_time=", 16)) {
      seconds = std::atof(argv[k] + 16);
    } else if (!std::strncmp(argv[k], "-dict=", 6)) {
      dict = dictionary_words(argv[k] + 6);
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
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(); };
  long r = 0;
  for (; r < runs && (seconds <= 0.0 || elapsed() < seconds); ++r) {
    std::string input = mutate(seeds[rng() % seeds.size()], rng);
    { std::ofstream("crash-input.txt", std::ios::binary) << input; }
    LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(input.data()), input.size());
    if ((r + 1) % 1000 == 0) std::fprintf(stderr, "runs: %ld\n", r + 1);
  }
  std::remove("crash-input.txt");
  std::fprintf(stderr, "done: %ld runs in %.0f s, no crash\n", r, elapsed());
  return 0;
}
