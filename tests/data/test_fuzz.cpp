// Random sequences of appends, puts, removals and reads against a plain reference model:
// after every step the task must read back exactly what the model holds.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <cstdio>
#include <string>
#include <vector>

#include "api/fixture.h"

namespace {

// "<prefix><k>" (built with snprintf: string concatenation trips a false -Wrestrict in GCC 12).
std::string numbered(const char* prefix, int k) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%s%d", prefix, k);
  return buf;
}

struct Model {
  int m = 0, n = 0;
  std::vector<double> c;
  std::vector<std::string> names;  // variable names, "" when unnamed
  std::map<std::pair<int, int>, double> a;

  void put(int i, int j, double v) {
    if (v == 0.0)
      a.erase({i, j});
    else
      a[{i, j}] = v;
  }
  void remove(bool vars, const std::vector<int>& subset) {
    const int count = vars ? n : m;
    std::vector<int> idx(static_cast<size_t>(count), 0);
    for (int k : subset) idx[static_cast<size_t>(k)] = -1;
    int next = 0;
    for (int& s : idx)
      if (s == 0) s = next++;
    std::map<std::pair<int, int>, double> b;
    for (const auto& [key, v] : a) {
      const int i = vars ? key.first : idx[static_cast<size_t>(key.first)];
      const int j = vars ? idx[static_cast<size_t>(key.second)] : key.second;
      if (i >= 0 && j >= 0) b[{i, j}] = v;
    }
    a.swap(b);
    if (vars) {
      std::vector<double> c2;
      std::vector<std::string> n2;
      for (int j = 0; j < n; ++j)
        if (idx[static_cast<size_t>(j)] >= 0) {
          c2.push_back(c[static_cast<size_t>(j)]);
          n2.push_back(names[static_cast<size_t>(j)]);
        }
      c.swap(c2);
      names.swap(n2);
    }
    (vars ? n : m) = next;
  }
};

class FuzzTest : public TaskTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  std::mt19937 rng;
  Model model;
  int name_counter = 0;

  int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(rng); }
  double value() { return pick(5) == 0 ? 0.0 : static_cast<double>(pick(19) - 9) / 4.0; }

  std::vector<int> subset(int count) {
    std::set<int> s;
    const int k = pick(std::min(count, 4)) + 1;
    while (static_cast<int>(s.size()) < k) s.insert(pick(count));
    std::vector<int> v(s.begin(), s.end());
    std::shuffle(v.begin(), v.end(), rng);
    return v;
  }

  void step() {
    Model& md = model;
    switch (pick(10)) {
      case 0: {
        const int k = pick(4);
        ASSERT_EQ(QBR_appendvars(task, k), QBR_RES_OK);
        md.n += k;
        md.c.resize(static_cast<size_t>(md.n), 0.0);
        md.names.resize(static_cast<size_t>(md.n));
        break;
      }
      case 1: {
        const int k = pick(4);
        ASSERT_EQ(QBR_appendcons(task, k), QBR_RES_OK);
        md.m += k;
        break;
      }
      case 2:
      case 3:
        if (md.m && md.n) {
          const int i = pick(md.m), j = pick(md.n);
          const double v = value();
          ASSERT_EQ(QBR_putaij(task, i, j, v), QBR_RES_OK);
          md.put(i, j, v);
        }
        break;
      case 4:
        if (md.m && md.n) {
          const int j = pick(md.n), nz = pick(5);
          std::vector<QBRint32t> sub;
          std::vector<double> val;
          for (int k = 0; k < nz; ++k) {
            sub.push_back(pick(md.m));
            val.push_back(value());
          }
          ASSERT_EQ(QBR_putacol(task, j, nz, sub.data(), val.data()), QBR_RES_OK);
          for (auto it = md.a.begin(); it != md.a.end();) it = it->first.second == j ? md.a.erase(it) : std::next(it);
          for (int k = 0; k < nz; ++k) md.put(sub[static_cast<size_t>(k)], j, val[static_cast<size_t>(k)]);
        }
        break;
      case 5:
        if (md.m && md.n) {
          const int i = pick(md.m), nz = pick(5);
          std::vector<QBRint32t> sub;
          std::vector<double> val;
          for (int k = 0; k < nz; ++k) {
            sub.push_back(pick(md.n));
            val.push_back(value());
          }
          ASSERT_EQ(QBR_putarow(task, i, nz, sub.data(), val.data()), QBR_RES_OK);
          for (auto it = md.a.begin(); it != md.a.end();) it = it->first.first == i ? md.a.erase(it) : std::next(it);
          for (int k = 0; k < nz; ++k) md.put(i, sub[static_cast<size_t>(k)], val[static_cast<size_t>(k)]);
        }
        break;
      case 6:
        if (md.n > 0 && pick(3) == 0) {
          const auto s = subset(md.n);
          ASSERT_EQ(QBR_removevars(task, static_cast<QBRint32t>(s.size()), s.data()), QBR_RES_OK);
          md.remove(true, s);
        }
        break;
      case 7:
        if (md.m > 0 && pick(3) == 0) {
          const auto s = subset(md.m);
          ASSERT_EQ(QBR_removecons(task, static_cast<QBRint32t>(s.size()), s.data()), QBR_RES_OK);
          md.remove(false, s);
        }
        break;
      case 8:
        if (md.n) {
          const int j = pick(md.n);
          const std::string name = numbered("v", name_counter++);
          ASSERT_EQ(QBR_putvarname(task, j, name.c_str()), QBR_RES_OK);
          md.names[static_cast<size_t>(j)] = name;
          const double cj = value();
          ASSERT_EQ(QBR_putcj(task, j, cj), QBR_RES_OK);
          md.c[static_cast<size_t>(j)] = cj;
        }
        break;
      default:
        if (md.m && md.n) {
          double v = -1;
          const int i = pick(md.m), j = pick(md.n);
          ASSERT_EQ(QBR_getaij(task, i, j, &v), QBR_RES_OK);
          const auto it = md.a.find({i, j});
          ASSERT_EQ(v, it == md.a.end() ? 0.0 : it->second);
        }
        break;
    }
  }

  void compare() {
    const Model& md = model;
    QBRint32t m = -1, n = -1;
    QBR_getnumcon(task, &m);
    QBR_getnumvar(task, &n);
    ASSERT_EQ(m, md.m);
    ASSERT_EQ(n, md.n);
    QBRint64t nz = -1;
    QBR_getnumanz64(task, &nz);
    ASSERT_EQ(nz, static_cast<QBRint64t>(md.a.size()));
    std::vector<QBRint32t> si(md.a.size() + 1), sj(md.a.size() + 1);
    std::vector<double> sv(md.a.size() + 1);
    // By rows, the triplets come in row-major order, the order of the model's map.
    ASSERT_EQ(QBR_getarowslicetrip(task, 0, m, nz, si.data(), sj.data(), sv.data()), QBR_RES_OK);
    size_t k = 0;
    for (const auto& [key, v] : md.a) {
      ASSERT_EQ(si[k], key.first);
      ASSERT_EQ(sj[k], key.second);
      ASSERT_EQ(sv[k], v);
      ++k;
    }
    std::vector<double> c(static_cast<size_t>(n) + 1);
    QBR_getc(task, c.data());
    for (int j = 0; j < n; ++j) {
      ASSERT_EQ(c[static_cast<size_t>(j)], md.c[static_cast<size_t>(j)]);
      const std::string& name = md.names[static_cast<size_t>(j)];
      if (name.empty()) continue;
      QBRint32t found = 0, index = -1;
      QBR_getvarnameindex(task, name.c_str(), &found, &index);
      ASSERT_EQ(index, j);
    }
  }
};

TEST_P(FuzzTest, TaskFollowsTheReferenceModel) {
  rng.seed(GetParam());
  for (int s = 0; s < 1500; ++s) {
    ASSERT_NO_FATAL_FAILURE(step());
    if (s % 25 == 0) {
      ASSERT_NO_FATAL_FAILURE(compare()) << "step " << s;
    }
  }
  ASSERT_NO_FATAL_FAILURE(compare());
}

INSTANTIATE_TEST_SUITE_P(Seeds, FuzzTest, ::testing::Values(1u, 2u, 3u, 4u, 5u, 6u));

}  // namespace
