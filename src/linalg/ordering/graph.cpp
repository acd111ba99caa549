// Graph construction and debug dumps; see graph.h.
#include "linalg/ordering/graph.h"

#include <zlib.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>

#include "platform/prefaulted_buffer.h"

namespace qubor::linalg {

Status build_graph(int32_t n, const int64_t* colptr, const int32_t* rowind, Graph& g) {
  if (n < 0 || (n > 0 && (colptr == nullptr || colptr[0] != 0))) return Status::kInvalidInput;
  for (int32_t j = 0; j < n; ++j)
    if (colptr[j + 1] < colptr[j]) return Status::kInvalidInput;
  const int64_t nnz = n > 0 ? colptr[n] : 0;
  for (int64_t p = 0; p < nnz; ++p)
    if (rowind[p] < 0 || rowind[p] >= n) return Status::kInvalidInput;
  try {
    g.n = n;
    std::vector<int64_t> count(n + 1, 0);
    for (int32_t j = 0; j < n; ++j)
      for (int64_t p = colptr[j]; p < colptr[j + 1]; ++p)
        if (rowind[p] != j) {
          ++count[rowind[p]];
          ++count[j];
        }
    platform::assign_prefaulted(g.start, n, 0);
    platform::assign_prefaulted(g.length, n, 0);
    platform::assign_prefaulted(g.capacity, n, 0);
    int64_t total = 0;
    for (int32_t i = 0; i < n; ++i) {
      g.start[i] = total;
      g.capacity[i] = static_cast<int32_t>(count[i]);
      total += count[i];
    }
    platform::assign_prefaulted(g.adj, total, 0);
    platform::assign_prefaulted(g.weight, total, 1);
    // Both directions of every entry; duplicates (from a full pattern or repeated entries)
    // are dropped with a last-seen mark per node.
    std::vector<int32_t> mark(n, -1);
    for (int32_t j = 0; j < n; ++j) {
      for (int64_t p = colptr[j]; p < colptr[j + 1]; ++p) {
        int32_t i = rowind[p];
        if (i == j) continue;
        g.adj[g.start[i] + g.length[i]++] = j;
        g.adj[g.start[j] + g.length[j]++] = i;
      }
    }
    int64_t adsize = 0;
    for (int32_t i = 0; i < n; ++i) {
      int64_t q = g.start[i];
      for (int64_t p = g.start[i]; p < g.start[i] + g.length[i]; ++p) {
        int32_t k = g.adj[p];
        if (mark[k] == i) continue;
        mark[k] = i;
        g.adj[q++] = k;
      }
      g.length[i] = static_cast<int32_t>(q - g.start[i]);
      adsize += g.length[i];
    }
    g.adsize = adsize;
  } catch (const std::bad_alloc&) {
    g = Graph();
    return Status::kOutOfSpace;
  }
  return Status::kOk;
}

namespace {

// Makes room for one more entry in node i's run, moving the run to the end when full.
void reserve_one(Graph& g, int32_t i) {
  if (g.length[i] < g.capacity[i]) return;
  int32_t cap = g.capacity[i] < 4 ? 4 : 2 * g.capacity[i];
  int64_t to = static_cast<int64_t>(g.adj.size());
  g.adj.resize(to + cap);
  g.weight.resize(to + cap);
  for (int32_t k = 0; k < g.length[i]; ++k) {
    g.adj[to + k] = g.adj[g.start[i] + k];
    g.weight[to + k] = g.weight[g.start[i] + k];
  }
  g.start[i] = to;
  g.capacity[i] = cap;
}

}  // namespace

Status add_edge(Graph& g, int32_t i, int32_t j, int32_t w) {
  if (i < 0 || j < 0 || i >= g.n || j >= g.n || i == j) return Status::kInvalidInput;
  for (int64_t p = g.start[i]; p < g.start[i] + g.length[i]; ++p)
    if (g.adj[p] == j) return Status::kOk;
  try {
    reserve_one(g, i);
    reserve_one(g, j);
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
  g.adj[g.start[i] + g.length[i]] = j;
  g.weight[g.start[i] + g.length[i]++] = w;
  g.adj[g.start[j] + g.length[j]] = i;
  g.weight[g.start[j] + g.length[j]++] = w;
  g.adsize += 2;
  return Status::kOk;
}

void graph_to_csr(const Graph& g, std::vector<int64_t>& ptr, std::vector<int32_t>& ind) {
  platform::assign_prefaulted(ptr, g.n + 1, 0);
  platform::assign_prefaulted(ind, static_cast<size_t>(g.adsize), 0);
  int64_t q = 0;
  for (int32_t i = 0; i < g.n; ++i) {
    ptr[i] = q;
    if (g.length[i] > 0)
      std::memcpy(ind.data() + q, g.adj.data() + g.start[i], sizeof(int32_t) * g.length[i]);
    q += g.length[i];
  }
  ptr[g.n] = q;
}

void log_graph_size(const Graph& g, const LogSink* sink) {
  log_printf(sink, 2, "numnodes: %d adsize: %d\n", g.n, static_cast<int>(g.adsize));
}

namespace {

// Text output to a plain or gzip file.
class TextOut {
 public:
  explicit TextOut(const char* name) {
    size_t len = std::strlen(name);
    if (len > 3 && std::strcmp(name + len - 3, ".gz") == 0)
      gz_ = gzopen(name, "wb");
    else
      file_ = std::fopen(name, "w");
  }
  ~TextOut() {
    if (gz_ != nullptr) gzclose(gz_);
    if (file_ != nullptr) std::fclose(file_);
  }
  TextOut(const TextOut&) = delete;
  TextOut& operator=(const TextOut&) = delete;
  bool ok() const { return gz_ != nullptr || file_ != nullptr; }
  void put(const char* text) {
    if (gz_ != nullptr) gzputs(gz_, text);
    if (file_ != nullptr) std::fputs(text, file_);
  }

 private:
  gzFile gz_ = nullptr;
  std::FILE* file_ = nullptr;
};

}  // namespace

Status dump_graph(const Graph& g, const char* filename, bool both_directions,
                  const LogSink* sink) {
  TextOut out(filename);
  if (!out.ok()) {
    log_printf(sink, 1, "ERROR OPENING FILE: %s\n", filename);
    return Status::kInvalidInput;
  }
  char line[96];
  std::snprintf(line, sizeof(line), "%d\n", g.n);
  out.put(line);
  std::snprintf(line, sizeof(line), "%" PRId64 "\n", both_directions ? g.adsize : g.adsize / 2);
  out.put(line);
  for (int32_t i = 0; i < g.n; ++i) {
    for (int64_t p = g.start[i]; p < g.start[i] + g.length[i]; ++p) {
      if (!both_directions && g.adj[p] > i) continue;
      std::snprintf(line, sizeof(line), "%d %d %d\n", i, g.adj[p], g.weight[p]);
      out.put(line);
    }
  }
  return Status::kOk;
}

Status dump_permutation(const std::vector<int32_t>& perm, const char* filename,
                        const LogSink* sink) {
  log_printf(sink, 1, "*** Dump perm to %s\n", filename);
  TextOut out(filename);
  if (!out.ok()) {
    log_printf(sink, 1, "ERROR OPENING FILE: %s\n", filename);
    return Status::kInvalidInput;
  }
  char line[32];
  for (int32_t v : perm) {
    std::snprintf(line, sizeof(line), "%-d\n", v);
    out.put(line);
  }
  return Status::kOk;
}

}  // namespace qubor::linalg
