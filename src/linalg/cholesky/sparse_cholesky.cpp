// SparseCholesky: ordering, analysis, factorization and solves in sequence; see
// sparse_cholesky.h.
#include "linalg/cholesky/sparse_cholesky.h"

#include <omp.h>

#include <new>

#include "linalg/cholesky/statistics.h"
#include "linalg/ordering/graph.h"

namespace qubor::linalg {

struct SparseCholesky::Impl {
  SparseCholeskyOptions opt;
  PivotRule rule;
  int32_t threads = 1;
  SymbolicFactor sf;
  NumericFactor nf;
  std::vector<ThreadScratch> scratch;
  std::vector<double> solve_work;
  std::vector<int8_t> signs;
  OrderChoice choice;
  CholeskyStatistics stats;
  bool analysed = false;

  Status order(const LowerPattern& a, const LogSink* sink, const int32_t* perm);
};

SparseCholesky::SparseCholesky() : impl_(new Impl()) {}
SparseCholesky::~SparseCholesky() = default;

Status SparseCholesky::Impl::order(const LowerPattern& a, const LogSink* sink,
                                   const int32_t* perm) {
  Graph g;
  Status s = build_graph(a.n, a.colptr, a.rowind, g);
  if (s != Status::kOk) return s;
  log_graph_size(g, sink);
  std::string gp_name;
  if (opt.debug) {
    std::string ml_name = "sg-" + opt.debug_name + "-ml.sg.gz";
    gp_name = "sg-" + opt.debug_name + "-gp.sg.gz";
    log_printf(sink, 1, "%s(%d)\n", __FILE__, __LINE__);
    dump_graph(g, ml_name.c_str(), false, sink);
  }
  s = choose_ordering(g, a.n > 0 ? a.colptr[a.n] : 0, opt.order_method, opt.nested_dissection,
                      perm, sink, choice, opt.debug ? gp_name.c_str() : nullptr);
  if (s == Status::kOk && opt.debug) {
    std::string perm_name = "perm-" + opt.debug_name + ".txt";
    dump_permutation(choice.order.perm, perm_name.c_str(), sink);
  }
  return s;
}

Status SparseCholesky::analyse(const LowerPattern& a, const SparseCholeskyOptions& options,
                               const LogSink* sink, const int32_t* perm, const int8_t* signs) {
  Impl& m = *impl_;
  m.analysed = false;
  if (options.row_major) {
    log_printf(sink, 1, "Row major is not implemented\n");
    return Status::kInvalidInput;
  }
  if (options.type != FactorType::kCholesky && options.type != FactorType::kLdlt)
    return Status::kInvalidInput;
  Status s = check_lower_pattern(a.n, a.colptr, a.rowind);
  if (s != Status::kOk) return s;
  try {
    m.opt = options;
    m.threads = options.num_threads > 0 ? options.num_threads : omp_get_num_procs();
    m.rule.type = options.type;
    m.rule.tolerance = options.pivot_tolerance;
    m.rule.regularization = options.regularization;
    m.rule.replacement = options.replacement;
    if (m.rule.replacement == PivotReplacement::kDefault)
      m.rule.replacement = options.type == FactorType::kLdlt ? PivotReplacement::kRegularize
                                                             : PivotReplacement::kHuge;
    m.signs.assign(signs ? signs : nullptr, signs ? signs + a.n : nullptr);
    m.stats = CholeskyStatistics();
    s = m.order(a, sink, perm);
    if (s != Status::kOk) return s;
    const double t0 = wall_seconds();
    SymbolicOptions so;
    so.panel_width = options.panel_width;
    so.num_threads = m.threads;
    so.amalgamate = options.amalgamate;
    so.order_columns = options.order_columns;
    s = analyse_pattern(a.n, a.colptr, a.rowind, m.choice.order.perm, so, sink, m.sf);
    if (s != Status::kOk) return s;
    numeric_setup(m.sf, options.type, m.threads, m.nf, m.scratch);
    m.stats.analyse_time = wall_seconds() - t0;
    structural_statistics(m.sf, m.choice, m.stats);
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
  m.analysed = true;
  return Status::kOk;
}

Status SparseCholesky::factor(const double* values) {
  Impl& m = *impl_;
  if (!m.analysed) return Status::kNotAnalysed;
  const double t0 = wall_seconds();
  Status s = numeric_factor(m.sf, values, m.signs.empty() ? nullptr : m.signs.data(), m.rule,
                            m.threads, m.nf, m.scratch);
  if (s != Status::kOk) return s;
  m.stats.factor_time += wall_seconds() - t0;
  m.stats.factorizations += 1;
  return Status::kOk;
}

Status SparseCholesky::solve(double* b, int32_t nrhs, int64_t ldb) {
  Impl& m = *impl_;
  if (!m.analysed) return Status::kNotAnalysed;
  if (!m.nf.valid) return Status::kNotFactored;
  if (nrhs < 0 || ldb < m.sf.n || (b == nullptr && m.sf.n > 0 && nrhs > 0))
    return Status::kInvalidInput;
  if (nrhs == 0 || m.sf.n == 0) return Status::kOk;
  const double t0 = wall_seconds();
  try {
    numeric_solve(m.sf, m.nf, m.opt.type, b, nrhs, ldb, m.solve_work, m.scratch[0]);
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
  m.stats.solve_time += wall_seconds() - t0;
  m.stats.solves += 1;
  return Status::kOk;
}

const std::vector<int32_t>& SparseCholesky::perturbed() const { return impl_->nf.perturbed; }
const std::vector<int32_t>& SparseCholesky::permutation() const { return impl_->sf.perm; }

void SparseCholesky::diagonal(std::vector<double>& d) const {
  const Impl& m = *impl_;
  d.assign(m.nf.d.size(), 0.0);
  for (size_t k = 0; k < m.nf.d.size(); ++k) d[m.sf.perm[k]] = m.nf.d[k];
}

Status SparseCholesky::factor_rows(std::vector<int64_t>& ptr, std::vector<int32_t>& col,
                                   std::vector<double>& val) const {
  const Impl& m = *impl_;
  if (!m.analysed) return Status::kNotAnalysed;
  if (!m.nf.valid || m.opt.type != FactorType::kCholesky) return Status::kNotFactored;
  const SymbolicFactor& sf = m.sf;
  try {
    std::vector<uint8_t> dropped(static_cast<size_t>(sf.n), 0);
    for (int32_t j : m.nf.perturbed) dropped[static_cast<size_t>(sf.invp[j])] = 1;
    ptr.assign(1, 0);
    col.clear();
    val.clear();
    for (int32_t s = 0; s < sf.nsuper; ++s) {
      const int32_t nr = sf.nrows(s), w = sf.ncols(s);
      const int32_t* rows = sf.rows.data() + sf.row_ptr[s];
      const double* blk = m.nf.values.data() + sf.value_ptr[s];
      for (int32_t c = 0; c < w; ++c) {
        if (dropped[static_cast<size_t>(sf.super_start[s] + c)]) continue;
        for (int32_t r = c; r < nr; ++r) {
          const double v = blk[r + static_cast<int64_t>(c) * nr];
          if (v == 0.0) continue;
          col.push_back(sf.perm[rows[r]]);
          val.push_back(v);
        }
        ptr.push_back(static_cast<int64_t>(col.size()));
      }
    }
  } catch (const std::bad_alloc&) {
    return Status::kOutOfSpace;
  }
  return Status::kOk;
}

int32_t SparseCholesky::dimension() const { return impl_->sf.n; }
int64_t SparseCholesky::nnz_l() const { return impl_->sf.nnz_l; }
double SparseCholesky::flops() const { return impl_->sf.flops; }
const OrderChoice& SparseCholesky::ordering() const { return impl_->choice; }

const CholeskyStatistics& SparseCholesky::statistics() const {
  Impl& m = *impl_;
  m.stats.timers = PhaseTimers();
  m.stats.dense.clear();
  for (const ThreadScratch& ws : m.scratch) {
    m.stats.timers.add(ws.timers);
    m.stats.dense.add(ws.dense);
  }
  return m.stats;
}

void SparseCholesky::print_summary(const LogSink* sink) const {
  print_statistics(statistics(), sink);
}

}  // namespace qubor::linalg
