// Status mapping; see status_map.h.
#include "driver/status_map.h"

namespace qubor::driver {

using interior::ProblemStatus;
using interior::SolutionStatus;
using interior::Termination;

int32_t public_problem_status(ProblemStatus s) {
  switch (s) {
    case ProblemStatus::kPrimalDualFeasible: return QBR_PRO_STA_PRIM_AND_DUAL_FEAS;
    case ProblemStatus::kPrimalFeasible: return QBR_PRO_STA_PRIM_FEAS;
    case ProblemStatus::kDualFeasible: return QBR_PRO_STA_DUAL_FEAS;
    case ProblemStatus::kPrimalInfeasible: return QBR_PRO_STA_PRIM_INFEAS;
    case ProblemStatus::kDualInfeasible: return QBR_PRO_STA_DUAL_INFEAS;
    case ProblemStatus::kPrimalDualInfeasible: return QBR_PRO_STA_PRIM_AND_DUAL_INFEAS;
    case ProblemStatus::kIllPosed: return QBR_PRO_STA_ILL_POSED;
    default: return QBR_PRO_STA_UNKNOWN;
  }
}

int32_t public_solution_status(SolutionStatus s) {
  switch (s) {
    case SolutionStatus::kOptimal: return QBR_SOL_STA_OPTIMAL;
    case SolutionStatus::kPrimalFeasible: return QBR_SOL_STA_PRIM_FEAS;
    case SolutionStatus::kDualFeasible: return QBR_SOL_STA_DUAL_FEAS;
    case SolutionStatus::kPrimalInfeasibleCertificate:
    case SolutionStatus::kNearPrimalInfeasibleCertificate: return QBR_SOL_STA_PRIM_INFEAS_CER;
    case SolutionStatus::kDualInfeasibleCertificate:
    case SolutionStatus::kNearDualInfeasibleCertificate: return QBR_SOL_STA_DUAL_INFEAS_CER;
    default: return QBR_SOL_STA_UNKNOWN;
  }
}

QBRrescode termination_response(Termination trm) {
  switch (trm) {
    case Termination::kNormal: return QBR_RES_OK;
    case Termination::kOutOfSpace: return QBR_RES_ERR_SPACE;
    case Termination::kMaxIterations: return QBR_RES_TRM_MAX_ITERATIONS;
    case Termination::kMaxTime: return QBR_RES_TRM_MAX_TIME;
    case Termination::kUserBreak:
    case Termination::kUserCallback: return QBR_RES_TRM_USER_CALLBACK;
    case Termination::kStalled: return QBR_RES_TRM_STALL;
    case Termination::kNumericalInstability: return QBR_RES_TRM_NUMERICAL_PROBLEM;
    case Termination::kFactorError: return QBR_RES_TRM_INTERNAL;
    case Termination::kModelError: return QBR_RES_ERR_INTERNAL;
    default: return QBR_RES_TRM_INTERNAL_STOP;
  }
}

}  // namespace qubor::driver
