// The optimizer summary: times and iteration counts of the last optimize call, by stage.
#include "driver/optimize.h"

namespace qubor::driver {
namespace {

void row_time(task::Task& t, int32_t stream, const char* label, double time) {
  t.printf(stream, "%-36s: %-10.2f\n", label, time);
}

void row_iter_time(task::Task& t, int32_t stream, const char* label, int64_t iter, double time) {
  t.printf(stream, "%-36s: iterations : %-10lld time : %-10.2f\n", label,
           static_cast<long long>(iter), time);
}

}  // namespace

QBRrescode optimizer_summary(task::Task& t, int32_t stream) {
  const auto& d = t.info.dou;
  const auto& i = t.info.ints;
  const auto& l = t.info.lint;
  const double opt_time = d[QBR_DINF_OPTIMIZER_TIME];
  const int32_t ip_iter = i[QBR_IINF_INTPNT_ITER];
  const double ip_time = d[QBR_DINF_INTPNT_TIME], bi_time = d[QBR_DINF_BI_TIME];
  const int64_t bi_p = l[QBR_LIINF_BI_PRIMAL_ITER], bi_d = l[QBR_LIINF_BI_DUAL_ITER];
  const double bi_pt = d[QBR_DINF_BI_PRIMAL_TIME], bi_dt = d[QBR_DINF_BI_DUAL_TIME];
  const int64_t cl_p = l[QBR_LIINF_BI_CLEAN_PRIMAL_ITER], cl_d = l[QBR_LIINF_BI_CLEAN_DUAL_ITER];
  const double cl_pt = d[QBR_DINF_BI_CLEAN_PRIMAL_TIME], cl_dt = d[QBR_DINF_BI_CLEAN_DUAL_TIME];
  const double sim_time = d[QBR_DINF_SIM_TIME];
  const int32_t sim_p = i[QBR_IINF_SIM_PRIMAL_ITER], sim_d = i[QBR_IINF_SIM_DUAL_ITER];
  const double sim_pt = d[QBR_DINF_SIM_PRIMAL_TIME], sim_dt = d[QBR_DINF_SIM_DUAL_TIME];
  const int32_t mio_relax = i[QBR_IINF_MIO_NUM_RELAX];
  t.printf(stream, "Optimizer summary\n");
  row_time(t, stream, "  Optimizer", opt_time);
  row_iter_time(t, stream, "    Interior-point", ip_iter, ip_time);
  row_time(t, stream, "      Basis identification", bi_time);
  row_iter_time(t, stream, "        Primal", bi_p, bi_pt);
  row_iter_time(t, stream, "        Dual", bi_d, bi_dt);
  row_iter_time(t, stream, "        Clean primal", cl_p, cl_pt);
  row_iter_time(t, stream, "        Clean dual", cl_d, cl_dt);
  row_time(t, stream, "    Simplex", sim_time);
  row_iter_time(t, stream, "      Primal simplex", sim_p, sim_pt);
  row_iter_time(t, stream, "      Dual simplex", sim_d, sim_dt);
  t.printf(stream, "%-36s: relaxations: %-10d\n", "    Mixed integer", mio_relax);
  return QBR_RES_OK;
}

}  // namespace qubor::driver
