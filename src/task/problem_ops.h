// Operations on the problem data of a task: every put checks its arguments in the order of
// the call frame (indices, then values), reports failures and warnings through the task's
// reporters, changes the task only when the checks pass, and ends with the task's
// after-modification step. List and slice forms check and apply item by item and stop at the
// first failing item, keeping the items before it; single puts change nothing on failure.
//
// Slices are [first, last): first outside [0, count] gives QBR_RES_ERR_FIRST, last outside
// [first, count] QBR_RES_ERR_LAST. Index arguments give QBR_RES_ERR_INDEX_IS_TOO_SMALL /
// _TOO_LARGE naming the argument; arrays that must be given give QBR_RES_ERR_NULL_POINTER.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "qubor.h"
#include "task/task.h"

// Returns from the enclosing function when `expr` gives a nonzero response code.
#define QBR_CHECK_RC(expr)                  \
  do {                                      \
    const QBRrescode qbr_rc_ = (expr);      \
    if (qbr_rc_ != QBR_RES_OK) return qbr_rc_; \
  } while (0)

namespace qubor::task {

// ---- Shared checks ----
QBRrescode check_item(Task& t, int64_t index, int64_t count, const char* argname);
QBRrescode check_slice(Task& t, int64_t first, int64_t last, int64_t count);
QBRrescode check_array(Task& t, const void* p, int64_t num, const char* argname);
// Display names for messages: the item's name, or a generic one when it has none.
std::string var_label(const Task& t, int32_t j);
std::string con_label(const Task& t, int32_t i);

// The after-modification step: solutions follow the problem's dimensions.
void after_change(Task& t);

// ---- Linear data (problem_linear.cpp) ----
QBRrescode append_vars(Task& t, int32_t num);
QBRrescode append_cons(Task& t, int32_t num);
QBRrescode remove_vars(Task& t, int32_t num, const int32_t* subset);
QBRrescode remove_cons(Task& t, int32_t num, const int32_t* subset);
QBRrescode put_max_num_var(Task& t, int32_t n);
QBRrescode put_max_num_con(Task& t, int32_t n);
QBRrescode put_max_num_anz(Task& t, int64_t n);
QBRrescode put_max_num_qnz(Task& t, int64_t n);
QBRrescode put_max_num_cone(Task& t, int32_t n);
QBRrescode put_max_num_barvar(Task& t, int32_t n);
QBRrescode resize_task(Task& t, int32_t maxnumcon, int32_t maxnumvar, int32_t maxnumcone, int64_t maxnumanz,
                       int64_t maxnumqnz);
QBRrescode put_cj(Task& t, int32_t j, double cj);  // j already checked
QBRrescode put_c_list(Task& t, int32_t num, const int32_t* subj, const double* val);
QBRrescode put_c_slice(Task& t, int32_t first, int32_t last, const double* val);
QBRrescode put_obj_sense(Task& t, int32_t sense);
enum class ItemKind { kVar, kCon };
// One bound; k already checked.
QBRrescode put_bound(Task& t, ItemKind kind, int32_t k, int32_t bk, double bl, double bu);
QBRrescode put_bound_list(Task& t, ItemKind kind, int32_t num, const int32_t* sub, const int32_t* bk,
                          const double* bl, const double* bu);
QBRrescode put_bound_slice(Task& t, ItemKind kind, int32_t first, int32_t last, const int32_t* bk,
                           const double* bl, const double* bu);
QBRrescode put_bound_list_const(Task& t, ItemKind kind, int32_t num, const int32_t* sub, int32_t bk, double bl,
                                double bu);
QBRrescode put_bound_slice_const(Task& t, ItemKind kind, int32_t first, int32_t last, int32_t bk, double bl,
                                 double bu);
QBRrescode chg_bound(Task& t, ItemKind kind, int32_t k, int32_t lower, int32_t finite, double value);
QBRrescode put_var_type(Task& t, int32_t j, int32_t type);  // j already checked
QBRrescode put_var_type_list(Task& t, int32_t num, const int32_t* subj, const int32_t* type);

// ---- The matrix A (problem_matrix.cpp) ----
QBRrescode put_aij(Task& t, int32_t i, int32_t j, double aij);  // i, j already checked
QBRrescode put_aij_list(Task& t, int64_t num, const int32_t* subi, const int32_t* subj, const double* val);
QBRrescode put_acol(Task& t, int32_t j, int32_t nz, const int32_t* sub, const double* val);
QBRrescode put_arow(Task& t, int32_t i, int32_t nz, const int32_t* sub, const double* val);
// Columns (rows) sub[k] or first + k, entries [ptrb[k], ptre[k]); sub null means a slice.
QBRrescode put_a_items(Task& t, bool by_col, int32_t num, const int32_t* sub, int32_t first, const int64_t* ptrb,
                       const int64_t* ptre, const int32_t* asub, const double* aval);
QBRrescode put_a_truncate_tol(Task& t, double tol);
// Slice readers: entries of items [first, last), CSC/CSR-like or as triplets.
QBRrescode get_a_slice(Task& t, bool by_col, int32_t first, int32_t last, int64_t maxnumnz, int64_t* ptrb,
                       int64_t* ptre, int32_t* sub, double* val);
QBRrescode get_a_slice_trip(Task& t, bool by_col, int32_t first, int32_t last, int64_t maxnumnz, int32_t* subi,
                            int32_t* subj, double* val);
int64_t a_slice_nnz(const Task& t, bool by_col, int32_t first, int32_t last);

// ---- Names (problem_names.cpp) ----
enum class NameKind { kVar, kCon, kCone, kBarvar };
QBRrescode put_name(Task& t, NameKind kind, int32_t k, const char* name);  // k already checked
QBRrescode find_name(Task& t, NameKind kind, const char* name, int32_t* found, int32_t* index);
QBRrescode copy_name(Task& t, const std::pmr::string& name, int32_t sizename, char* out);
const NameTable& names_of(const Task& t, NameKind kind);

// ---- Cones (problem_cones.cpp) ----
QBRrescode append_cone(Task& t, int32_t ct, double par, int32_t nummem, const int32_t* submem);
QBRrescode append_cone_seq(Task& t, int32_t ct, double par, int32_t nummem, int32_t j);
QBRrescode append_cones_seq(Task& t, int32_t num, const int32_t* ct, const double* par, const int32_t* nummem,
                            int32_t j);
QBRrescode put_cone(Task& t, int32_t k, int32_t ct, double par, int32_t nummem, const int32_t* submem);
QBRrescode remove_cones(Task& t, int32_t num, const int32_t* subset);

// ---- Matrix variables and symmetric matrices (problem_barvars.cpp) ----
QBRrescode append_barvars(Task& t, int32_t num, const int32_t* dim);
QBRrescode remove_barvars(Task& t, int32_t num, const int32_t* subset);
QBRrescode append_sym_mat(Task& t, int32_t dim, int64_t nz, const int32_t* subi, const int32_t* subj,
                          const double* val, int64_t* idx);
QBRrescode check_sym_mat_index(Task& t, int64_t idx, const char* argname);
QBRrescode put_barc_j(Task& t, int32_t j, int64_t num, const int64_t* sub, const double* weights);
QBRrescode put_bara_ij(Task& t, int32_t i, int32_t j, int64_t num, const int64_t* sub, const double* weights);
QBRrescode put_bara_block_triplet(Task& t, int64_t num, const int32_t* subi, const int32_t* subj,
                                  const int32_t* subk, const int32_t* subl, const double* val);
QBRrescode put_barc_block_triplet(Task& t, int64_t num, const int32_t* subj, const int32_t* subk,
                                  const int32_t* subl, const double* val);
// Entries of the block-triplet view of barc (i = -1) or bara: (i, j, k, l, value) with k >= l.
int64_t bar_block_triplet_count(const Task& t, bool barc);
void bar_block_triplets(const Task& t, bool barc, int32_t* subi, int32_t* subj, int32_t* subk, int32_t* subl,
                        double* val);

// ---- Quadratic terms (problem_quadratic.cpp) ----
QBRrescode put_qobj(Task& t, int64_t num, const int32_t* subi, const int32_t* subj, const double* val);
QBRrescode put_qobj_ij(Task& t, int32_t i, int32_t j, double v);
QBRrescode put_qcon_k(Task& t, int32_t k, int64_t num, const int32_t* subi, const int32_t* subj,
                      const double* val);
QBRrescode put_qcon(Task& t, int64_t num, const int32_t* subk, const int32_t* subi, const int32_t* subj,
                    const double* val);
double q_get(const QMatrix& q, int32_t i, int32_t j);

// ---- Problem type (problem_type.cpp) ----
int32_t problem_type(const Problem& p);

}  // namespace qubor::task
