// Hand-over of a linear task to the homogeneous interior-point optimizer: the problem
// snapshot (negated for maximization), the options read from the task's parameters, the run,
// and the interior-point solution item with its statuses and status keys.
#pragma once

#include "interior/lp_problem.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::driver {

// Copies the linear part of the task into `lp`; the objective is negated when maximizing.
void snapshot_lp(const task::Task& t, interior::LpProblem& lp);

// Copies the quadratic objective (negated when maximizing) into `lp`.
void snapshot_qobj(const task::Task& t, interior::LpProblem& lp);

// Reads the interior-point parameters of the task (thread count given by the caller).
interior::IpOptions interior_options(task::Task& t, int32_t num_threads);

// The thread count of the interior-point optimizers.
int32_t intpnt_thread_count(const task::Task& t);

// Interior-point status key of an item from its bound key, bounds, value and bound duals.
int32_t intpnt_status_key(int32_t bk, double lo, double up, double val, double sl, double su);

// The values of an interior-point result in the task's form (minimization signs); snx may be
// null (no cones).
struct IntpntVectors {
  const double *x, *xc, *y, *slc, *suc, *slx, *sux, *snx;
};

// Defines the interior-point solution item from a result: statuses, values with the duals in
// the task's sense, and status keys when the result is a solution. Returns the item.
task::Solution& store_intpnt_solution(task::Task& t, const interior::LpProblem& lp, interior::ProblemStatus prosta,
                                      interior::SolutionStatus solsta, const IntpntVectors& v);

// The interior-point information items of a run (linear or conic result), objectives in the
// optimizer's minimization sense.
template <class Result>
void store_intpnt_information(task::Task& t, const Result& r, double primal_obj, double dual_obj) {
  const double sigma = t.problem.obj_sense == QBR_OBJECTIVE_SENSE_MAXIMIZE ? -1.0 : 1.0;
  t.set_iinf(QBR_IINF_INTPNT_ITER, r.iterations);
  t.set_iinf(QBR_IINF_INTPNT_FACTOR_DIM_DENSE, r.dense_dim);
  t.set_iinf(QBR_IINF_INTPNT_SOLVE_DUAL, 0);
  t.set_liinf(QBR_LIINF_INTPNT_FACTOR_NUM_NZ, r.factor_nnz);
  t.set_dinf(QBR_DINF_INTPNT_TIME, r.time);
  t.set_dinf(QBR_DINF_INTPNT_ORDER_TIME, r.order_time);
  t.set_dinf(QBR_DINF_INTPNT_FACTOR_NUM_FLOPS, r.factor_flops);
  t.set_dinf(QBR_DINF_INTPNT_PRIMAL_OBJ, sigma * primal_obj);
  t.set_dinf(QBR_DINF_INTPNT_DUAL_OBJ, sigma * dual_obj);
  t.set_dinf(QBR_DINF_INTPNT_PRIMAL_FEAS, r.primal_feas);
  t.set_dinf(QBR_DINF_INTPNT_DUAL_FEAS, r.dual_feas);
  double opt_status = 0.0;
  if (r.solution_status == interior::SolutionStatus::kOptimal) opt_status = 1.0;
  if (r.problem_status == interior::ProblemStatus::kPrimalInfeasible ||
      r.problem_status == interior::ProblemStatus::kDualInfeasible)
    opt_status = -1.0;
  t.set_dinf(QBR_DINF_INTPNT_OPT_STATUS, opt_status);
}

// Runs the interior-point path on a task with linear constraints and a linear or quadratic
// objective; returns the response of the run.
QBRrescode run_linear_intpnt(task::Task& t);

}  // namespace qubor::driver
