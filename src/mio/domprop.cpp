// Domain propagation; see domprop.h.
#include "mio/domprop.h"

#include <algorithm>
#include <cmath>

namespace qubor::mio {
namespace {

constexpr double kHuge = 1e12;  // residual activities beyond this are not trusted

}  // namespace

Propagator::Propagator(const Problem& p, std::vector<EventHandler>* handlers)
    : p_(p), handlers_(handlers), queued_(static_cast<size_t>(p.m()), 0) {}

void Propagator::queue_column(int32_t j) {
  for (int64_t k = p_.lp.col_ptr[static_cast<size_t>(j)]; k < p_.lp.col_ptr[static_cast<size_t>(j) + 1]; ++k) {
    const int32_t i = p_.lp.row_idx[static_cast<size_t>(k)];
    if (!queued_[static_cast<size_t>(i)]) {
      queued_[static_cast<size_t>(i)] = 1;
      queue_.push_back(i);
    }
  }
}

bool Propagator::visit_row(int32_t i, std::vector<double>& lo, std::vector<double>& up) {
  const size_t is = static_cast<size_t>(i);
  const int64_t b = p_.row_ptr[is], e = p_.row_ptr[is + 1];
  const double rlo = p_.lp.row_lo[is], rup = p_.lp.row_up[is];
  // Finite parts of the activity bounds and the number of infinite contributions.
  double min_act = 0.0, max_act = 0.0;
  int32_t min_inf = 0, max_inf = 0;
  for (int64_t k = b; k < e; ++k) {
    const size_t j = static_cast<size_t>(p_.col_idx[static_cast<size_t>(k)]);
    const double a = p_.row_val[static_cast<size_t>(k)];
    const double l = a > 0.0 ? lo[j] : up[j], u = a > 0.0 ? up[j] : lo[j];
    if (std::isfinite(l)) min_act += a * l; else ++min_inf;
    if (std::isfinite(u)) max_act += a * u; else ++max_inf;
  }
  if (min_inf == 0 && std::isfinite(rup) && min_act > rup + tol_feas_ * std::max(1.0, std::fabs(rup))) return false;
  if (max_inf == 0 && std::isfinite(rlo) && max_act < rlo - tol_feas_ * std::max(1.0, std::fabs(rlo))) return false;
  const bool use_up = std::isfinite(rup) && min_inf <= 1, use_lo = std::isfinite(rlo) && max_inf <= 1;
  if (!use_up && !use_lo) return true;
  for (int64_t k = b; k < e; ++k) {
    const int32_t jj = p_.col_idx[static_cast<size_t>(k)];
    const size_t j = static_cast<size_t>(jj);
    const double a = p_.row_val[static_cast<size_t>(k)];
    if (std::fabs(a) < 1e-9) continue;
    double new_lo = lo[j], new_up = up[j];
    const double l = a > 0.0 ? lo[j] : up[j], u = a > 0.0 ? up[j] : lo[j];
    // a x_j <= rup - (minimum activity of the others)
    if (use_up) {
      double rest;
      bool ok = true;
      if (min_inf == 0) rest = min_act - a * l;
      else if (!std::isfinite(l)) rest = min_act;
      else ok = false;
      if (ok && std::fabs(rest) < kHuge) {
        const double v = (rup - rest) / a;
        if (a > 0.0) new_up = std::min(new_up, v); else new_lo = std::max(new_lo, v);
      }
    }
    // a x_j >= rlo - (maximum activity of the others)
    if (use_lo) {
      double rest;
      bool ok = true;
      if (max_inf == 0) rest = max_act - a * u;
      else if (!std::isfinite(u)) rest = max_act;
      else ok = false;
      if (ok && std::fabs(rest) < kHuge) {
        const double v = (rlo - rest) / a;
        if (a > 0.0) new_lo = std::max(new_lo, v); else new_up = std::min(new_up, v);
      }
    }
    if (new_lo == lo[j] && new_up == up[j]) continue;
    Event ev{EventKind::kBoundTightened, jj, &new_lo, &new_up};
    if (handlers_ != nullptr)
      for (EventHandler& h : *handlers_) h.timed([&] { h.ops->run(h.data, p_, ev); return 0; });
    // Small moves of continuous bounds are not worth another pass.
    const double range = std::isfinite(up[j] - lo[j]) ? up[j] - lo[j] : 1.0;
    const double min_step = p_.is_int(jj) ? 0.5 : 1e-3 * std::max(1.0, range);
    bool changed = false;
    if (new_lo > lo[j] + min_step || (p_.is_int(jj) && new_lo > lo[j])) {
      lo[j] = new_lo;
      changed = true;
    }
    if (new_up < up[j] - min_step || (p_.is_int(jj) && new_up < up[j])) {
      up[j] = new_up;
      changed = true;
    }
    if (lo[j] > up[j]) {
      if (lo[j] > up[j] + tol_feas_ * std::max(1.0, std::fabs(up[j])) || p_.is_int(jj)) return false;
      lo[j] = up[j] = 0.5 * (lo[j] + up[j]);
    }
    if (changed) {
      ++tightenings_;
      queue_column(jj);
    }
  }
  return true;
}

bool Propagator::propagate(std::vector<double>& lo, std::vector<double>& up, const std::vector<int32_t>* seeds) {
  queue_.clear();
  std::fill(queued_.begin(), queued_.end(), 0);
  if (seeds == nullptr) {
    for (int32_t i = 0; i < p_.m(); ++i) {
      queued_[static_cast<size_t>(i)] = 1;
      queue_.push_back(i);
    }
  } else {
    for (int32_t j : *seeds) queue_column(j);
  }
  // Work budget in visited nonzeros.
  int64_t work = 0;
  const int64_t budget = 4 * static_cast<int64_t>(p_.lp.values.size()) + 10000;
  size_t head = 0;
  bool feasible = true;
  while (head < queue_.size()) {
    const int32_t i = queue_[head++];
    queued_[static_cast<size_t>(i)] = 0;
    work += p_.row_ptr[static_cast<size_t>(i) + 1] - p_.row_ptr[static_cast<size_t>(i)];
    if (!visit_row(i, lo, up)) {
      feasible = false;
      break;
    }
    if (work > budget) break;
    if (head > 4096 && head * 2 > queue_.size()) {  // keep the queue short
      queue_.erase(queue_.begin(), queue_.begin() + static_cast<std::ptrdiff_t>(head));
      head = 0;
    }
  }
  for (size_t k = head; k < queue_.size(); ++k) queued_[static_cast<size_t>(queue_[k])] = 0;
  return feasible;
}

}  // namespace qubor::mio
