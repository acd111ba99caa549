// The conic benchmark format (CBF, versions 1 to 3): reader and writer.
//
// A CBF file states  min/max  c'x + <C_j, X_j> + b0
//                    subject to  g = A x + <F_ij, X_j> + b  in K_con,  x in K_var,
//                                H x + D  in the PSD cone (per PSDCON block),  X_j PSD,
// where K_var and K_con are products of domains over consecutive members. The task holds
// the same problem as follows (read mapping; the writer inverts it):
// - CBF variable j is task variable j. Domain F: free; L+: lower bound 0; L-: upper bound 0;
//   L=: fixed at 0; Q, QR, EXP, EXP*, @k:POW, @k:POW*: free variables that are the members,
//   in order, of a cone QBR_CT_QUAD, _RQUAD, _PEXP, _DEXP, _PPOW, _DPOW. The member orders
//   agree: QR is 2 x1 x2 >= ||x3..||^2, EXP is x1 >= x2 exp(x3/x2), EXP* its dual
//   x1 >= -x3 exp(x2/x3 - 1); a power cone must have exactly two powers (a1, a2) and gets
//   the cone parameter a1 / (a1 + a2).
// - CBF constraint row i is task constraint i. A linear domain gives the bounds of a x + b:
//   L+ lower bound -b, L- upper bound -b, L= fixed at -b, F free. A row in a conic domain
//   gets a new free variable t_i (appended after the CBF variables, in row order) and the
//   constraint a x + <F, X> - t_i fixed at -b_i; the t_i of one domain form its cone.
// - PSDVAR j is matrix variable j. F, C, H and D entries are entries of symmetric matrices:
//   (k, l, v) stands for both positions (k, l) and (l, k), which is also how the task reads
//   the lower triangle of a stored matrix, so entries carry over unchanged (an entry given
//   with k < l is taken as (l, k)).
// - PSDCON block p of dimension d becomes a matrix variable S_p (after the PSDVAR ones) and
//   d(d+1)/2 constraints (after the CBF rows, row-wise through the lower triangle):
//   sum_j H_j,kl x_j - (S_p)_kl fixed at -D_kl, so that S_p = H x + D.
// - INT gives integer variables; OBJBCOORD the objective constant; OBJSENSE the sense.
// The writer keeps the variable, constraint and matrix-variable order. A cone whose members
// are consecutive variables in order is written as a VAR domain; any other cone becomes a
// block of CON rows x_m in its domain (read back through new variables t). Bounds that no
// VAR domain states (a nonzero bound, two finite bounds) become CON rows x_j >= l, x_j <= u
// or x_j = v after the task's constraints, and a ranged constraint becomes its L+ row plus
// an L- row behind them. A task read from CBF is written back as the same task.
//
// Responses of the reader: the QBR_RES_ERR_CBF_* codes, each message with the file line;
// declared sizes that the file cannot account for (more than 2^20 items and 64 items per
// byte of text) give QBR_RES_ERR_CBF_INVALID_DOMAIN_DIMENSION for the largest declaration,
// before the task grows, so a short file never makes the task allocate gigabytes. The writer refuses quadratic terms with
// QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_NONLINEAR (checked by the frame).
#pragma once

#include <cstdint>
#include <string_view>

#include "formats/frame/text_writer.h"
#include "platform/file_stream.h"
#include "qubor.h"
#include "task/task.h"

namespace qubor::formats {

// `name` (the file's, or "") is used in the message of a failed stream.
QBRrescode read_cbf(task::Task& t, platform::InStream& in, const char* name);
QBRrescode write_cbf(task::Task& t, TextWriter& out);

namespace cbf {

// The domains of the format; a linear domain has no cone type (-1).
enum class Domain : uint8_t { kFree, kNonneg, kNonpos, kZero, kQuad, kRquad, kExp, kDexp, kPow, kDpow };

struct DomainRow {
  std::string_view word;
  Domain domain;
  int32_t cone_type;
};

inline constexpr DomainRow kDomains[] = {
    {"F", Domain::kFree, -1},           {"L+", Domain::kNonneg, -1},          {"L-", Domain::kNonpos, -1},
    {"L=", Domain::kZero, -1},          {"Q", Domain::kQuad, QBR_CT_QUAD},    {"QR", Domain::kRquad, QBR_CT_RQUAD},
    {"EXP", Domain::kExp, QBR_CT_PEXP}, {"EXP*", Domain::kDexp, QBR_CT_DEXP}, {"POW", Domain::kPow, QBR_CT_PPOW},
    {"POW*", Domain::kDpow, QBR_CT_DPOW},
};

inline const DomainRow& domain_row(Domain d) { return kDomains[static_cast<size_t>(d)]; }

// The domain that holds a task cone; the zero cone is the linear domain L=.
inline Domain domain_of_cone(int32_t cone_type) {
  for (const DomainRow& r : kDomains)
    if (r.cone_type == cone_type) return r.domain;
  return Domain::kZero;
}

}  // namespace cbf

}  // namespace qubor::formats
