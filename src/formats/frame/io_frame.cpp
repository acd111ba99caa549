// The file frame: resolves names, opens the byte streams, times the read, empties the task,
// dispatches to the format readers and writers, and records the read information items.
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "formats/cbf/cbf.h"
#include "formats/formats.h"
#include "formats/frame/file_name.h"
#include "formats/frame/text_writer.h"
#include "formats/frame/try.h"
#include "formats/lp/lp.h"
#include "formats/json/json_task.h"
#include "formats/mps/mps.h"
#include "formats/opf/opf.h"
#include "formats/ptf/ptf.h"
#include "formats/task/task_file.h"
#include "platform/file_stream.h"
#include "platform/text.h"
#include "task/report.h"
#include "task/tables.h"

namespace qubor::formats {

using task::Task;

namespace {

QBRrescode open_failure(Task& t, platform::OpenStatus st, const char* name) {
  switch (st) {
    case platform::OpenStatus::kNoSpace:
      return QBR_REPORT(t, QBR_RES_ERR_SPACE);
    case platform::OpenStatus::kBadName:
      return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, name ? name : "");
    default:
      return QBR_REPORT(t, QBR_RES_ERR_FILE_OPEN, name ? name : "");
  }
}

void log_open(Task& t, const char* name) {
  if (t.ipar(QBR_IPAR_LOG_LOCAL_INFO) == 1) t.printf(QBR_STREAM_LOG, "Open file '%s'\n", name);
}

// The progress callback's own answer (0 when there is no callback).
int32_t callback_answer(Task& t, int32_t code) {
  if (!t.callback) return 0;
  return t.callback(t.handle, t.callback_handle, code, t.info.dou.data(), t.info.ints.data(),
                    t.info.lint.data());
}

std::vector<int32_t> iota_list(int32_t n) {
  std::vector<int32_t> v(static_cast<size_t>(n));
  for (int32_t k = 0; k < n; ++k) v[static_cast<size_t>(k)] = k;
  return v;
}

// Empties the problem data through the public operations; parameters, streams, callbacks
// stay. The three solutions belong to the old problem and are deleted.
QBRrescode empty_problem(Task& t) {
  QBRtask_t h = t.handle;
  int32_t n = 0;
  QUBOR_TRY(QBR_getnumcone(h, &n));
  if (n > 0) QUBOR_TRY(QBR_removecones(h, n, iota_list(n).data()));
  QUBOR_TRY(QBR_getnumbarvar(h, &n));
  if (n > 0) QUBOR_TRY(QBR_removebarvars(h, n, iota_list(n).data()));
  t.problem.clear_matrix_store();
  QUBOR_TRY(QBR_getnumvar(h, &n));
  if (n > 0) QUBOR_TRY(QBR_removevars(h, n, iota_list(n).data()));
  QUBOR_TRY(QBR_getnumcon(h, &n));
  if (n > 0) QUBOR_TRY(QBR_removecons(h, n, iota_list(n).data()));
  QUBOR_TRY(QBR_putcfix(h, 0.0));
  QUBOR_TRY(QBR_putobjsense(h, QBR_OBJECTIVE_SENSE_MINIMIZE));
  QUBOR_TRY(QBR_puttaskname(h, ""));
  QUBOR_TRY(QBR_putobjname(h, ""));
  for (int32_t s : {QBR_SOL_ITR, QBR_SOL_BAS, QBR_SOL_ITG}) QUBOR_TRY(QBR_deletesolution(h, s));
  return QBR_RES_OK;
}

void set_read_info(Task& t) {
  QBRtask_t h = t.handle;
  int32_t numvar = 0, numcon = 0, numbarvar = 0, numcone = 0, numint = 0, probtype = 0;
  int64_t numanz = 0, qnz = 0;
  QBR_getnumvar(h, &numvar);
  QBR_getnumcon(h, &numcon);
  QBR_getnumbarvar(h, &numbarvar);
  QBR_getnumcone(h, &numcone);
  QBR_getnumintvar(h, &numint);
  QBR_getnumanz64(h, &numanz);
  QBR_getprobtype(h, &probtype);
  int32_t numq = 0;
  QBR_getnumqobjnz(h, &qnz);
  if (qnz > 0) ++numq;
  for (int32_t i = 0; i < numcon; ++i) {
    int64_t k = 0;
    QBR_getnumqconknz(h, i, &k);
    if (k > 0) ++numq;
    qnz += k;
  }
  t.set_iinf(QBR_IINF_RD_NUMVAR, numvar);
  t.set_iinf(QBR_IINF_RD_NUMCON, numcon);
  t.set_iinf(QBR_IINF_RD_NUMBARVAR, numbarvar);
  t.set_iinf(QBR_IINF_RD_NUMCONE, numcone);
  t.set_iinf(QBR_IINF_RD_NUMINTVAR, numint);
  t.set_iinf(QBR_IINF_RD_NUMQ, numq);
  t.set_iinf(QBR_IINF_RD_PROTYPE, probtype);
  t.set_liinf(QBR_LIINF_RD_NUMANZ, numanz);
  t.set_liinf(QBR_LIINF_RD_NUMQNZ, qnz);
}

// `all_sections`: the task file is read whole, parameters included, whatever
// QBR_IPAR_READ_TASK_IGNORE_PARAM says. PTF is read from a string only (`from_string`).
QBRrescode dispatch_read(Task& t, platform::InStream& in, int32_t format, const char* name, bool all_sections,
                         bool from_string) {
  switch (format) {
    case QBR_DATA_FORMAT_PTF:
      if (!from_string) return QBR_REPORT(t, QBR_RES_ERR_READ_FORMAT, format);
      return read_ptf(t, in);
    case QBR_DATA_FORMAT_OP:
      return read_opf(t, in);
    case QBR_DATA_FORMAT_TASK:
      return read_task_file(t, in, name, !all_sections && t.ipar(QBR_IPAR_READ_TASK_IGNORE_PARAM) != 0);
    case QBR_DATA_FORMAT_JSON_TASK:
      return read_json_task(t, in);
    case QBR_DATA_FORMAT_MPS:
      return read_mps(t, in, t.ipar(QBR_IPAR_READ_MPS_FORMAT), name);
    case QBR_DATA_FORMAT_FREE_MPS:
      return read_mps(t, in, QBR_MPS_FORMAT_FREE, name);
    case QBR_DATA_FORMAT_LP:
      return read_lp(t, in, name);
    case QBR_DATA_FORMAT_CB:
      return read_cbf(t, in, name);
    default:
      return QBR_REPORT(t, QBR_RES_ERR_READ_FORMAT, format);
  }
}

// Steps shared by the file and string readers once the stream is open.
QBRrescode run_reader(Task& t, platform::InStream& in, int32_t format, const char* name, bool all_sections = false,
                      bool from_string = false) {
  const double start = platform::wall_seconds();
  if (int32_t stop = callback_answer(t, QBR_CALLBACK_BEGIN_READ)) return stop;
  QBRrescode r = empty_problem(t);
  if (r == QBR_RES_OK) r = dispatch_read(t, in, format, name, all_sections, from_string);
  t.set_dinf(QBR_DINF_RD_TIME, platform::wall_seconds() - start);
  int32_t stop = callback_answer(t, QBR_CALLBACK_END_READ);
  if (r == QBR_RES_OK && stop != 0) r = stop;
  if (r == QBR_RES_OK) set_read_info(t);
  return r;
}

const char* format_label(int32_t format) {
  switch (format) {
    case QBR_DATA_FORMAT_LP:
      return "LP";
    case QBR_DATA_FORMAT_OP:
      return "OPF";
    case QBR_DATA_FORMAT_CB:
      return "CBF";
    default:
      return "MPS";
  }
}

bool has_quadratic(Task& t) {
  int32_t numcon = 0;
  int64_t nz = 0;
  QBR_getnumcon(t.handle, &numcon);
  QBR_getnumqobjnz(t.handle, &nz);
  for (int32_t i = 0; i < numcon && nz == 0; ++i) QBR_getnumqconknz(t.handle, i, &nz);
  return nz > 0;
}

// What the target format cannot hold, unless QBR_IPAR_WRITE_IGNORE_INCOMPATIBLE_ITEMS says
// that the writer drops it.
QBRrescode check_writable(Task& t, int32_t format) {
  if (t.ipar(QBR_IPAR_WRITE_IGNORE_INCOMPATIBLE_ITEMS) != 0) return QBR_RES_OK;
  int32_t numbarvar = 0, numcone = 0;
  QBR_getnumbarvar(t.handle, &numbarvar);
  QBR_getnumcone(t.handle, &numcone);
  if (numbarvar > 0 && (format == QBR_DATA_FORMAT_LP || format == QBR_DATA_FORMAT_OP)) {
    return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_SYM_MAT, format_label(format));
  }
  if (numcone > 0 && format == QBR_DATA_FORMAT_LP) {
    return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_CONES, format_label(format));
  }
  if (format == QBR_DATA_FORMAT_CB && has_quadratic(t)) {
    return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_FORMAT_FOR_NONLINEAR, format_label(format));
  }
  return QBR_RES_OK;
}

bool has_writer(int32_t format) { return format >= QBR_DATA_FORMAT_MPS && format <= QBR_DATA_FORMAT_JSON_TASK; }

QBRrescode dispatch_write(Task& t, TextWriter& out, int32_t format) {
  switch (format) {
    case QBR_DATA_FORMAT_MPS:
    case QBR_DATA_FORMAT_FREE_MPS:
      return write_mps(t, out, t.ipar(QBR_IPAR_WRITE_MPS_FORMAT));
    case QBR_DATA_FORMAT_LP:
      return write_lp(t, out);
    case QBR_DATA_FORMAT_CB:
      return write_cbf(t, out);
    case QBR_DATA_FORMAT_TASK:
      return write_task_file(t, out);
    case QBR_DATA_FORMAT_JSON_TASK:
      return write_json_task(t, out);
    case QBR_DATA_FORMAT_PTF:
      return write_ptf(t, out);
    case QBR_DATA_FORMAT_OP:
      return write_opf(t, out, OpfSwitches::of(t));
    default:
      return QBR_REPORT(t, QBR_RES_ERR_INVALID_FORMAT_TYPE, format);
  }
}

}  // namespace

QBRrescode read_data(Task& t, const char* filename, int32_t format, int32_t compress, bool all_sections) {
  if (!filename) return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, "");
  const FileKind kind = file_kind(filename);
  if (format == QBR_DATA_FORMAT_EXTENSION) format = kind.format;
  if (compress == QBR_COMPRESS_FREE) compress = kind.compress;
  log_open(t, filename);
  std::unique_ptr<platform::InStream> in;
  platform::OpenStatus st = platform::open_input(filename, compression_of(compress), &in);
  if (st != platform::OpenStatus::kOk) return open_failure(t, st, filename);
  return run_reader(t, *in, format, filename, all_sections);
}

QBRrescode read_string(Task& t, const char* text, int32_t format) {
  std::unique_ptr<platform::InStream> in;
  try {
    in = platform::memory_input(text);
  } catch (const std::bad_alloc&) {
    return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  }
  return run_reader(t, *in, format, "", false, true);
}

QBRrescode write_data(Task& t, const char* filename, int32_t format, int32_t compress) {
  if (!filename) return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, "");
  FileKind kind = file_kind(filename);
  if (format != QBR_DATA_FORMAT_EXTENSION) kind.format = format;
  if (compress != QBR_COMPRESS_FREE) kind.compress = compress;
  log_open(t, filename);
  // A refused or failed write leaves an existing file as it was (write_file replaces it only
  // after a complete write).
  QUBOR_TRY(check_writable(t, kind.format));
  if (!has_writer(kind.format)) return QBR_REPORT(t, QBR_RES_ERR_INVALID_FORMAT_TYPE, kind.format);
  bool begun = false;
  QBRrescode r = write_file(t, filename, compression_of(kind.compress), [&](TextWriter& w) -> QBRrescode {
    if (int32_t stop = callback_answer(t, QBR_CALLBACK_BEGIN_WRITE)) return stop;
    begun = true;
    return dispatch_write(t, w, kind.format);
  });
  if (!begun) return r;
  int32_t stop = callback_answer(t, QBR_CALLBACK_END_WRITE);
  return r == QBR_RES_OK && stop != 0 ? stop : r;
}

QBRrescode read_summary(Task& t, int32_t whichstream) {
  int32_t sense = QBR_OBJECTIVE_SENSE_MINIMIZE;
  QBR_getobjsense(t.handle, &sense);
  const char* type = task::enum_text(task::EnumGroup::PROBTYPE, t.info.ints[QBR_IINF_RD_PROTYPE]);
  const char* sense_text = task::enum_text(task::EnumGroup::OBJSENSE, sense);
  t.printf(whichstream, "\nRead summary\n");
  t.printf(whichstream, "  Type             : %s\n", type ? type : "");
  t.printf(whichstream, "  Objective sense  : %s\n", sense_text ? sense_text : "");
  t.printf(whichstream, "  Scalar variables : %-12d\n", t.info.ints[QBR_IINF_RD_NUMVAR]);
  t.printf(whichstream, "  Matrix variables : %-12d\n", t.info.ints[QBR_IINF_RD_NUMBARVAR]);
  t.printf(whichstream, "  Constraints      : %-12d\n", t.info.ints[QBR_IINF_RD_NUMCON]);
  t.printf(whichstream, "  Cones            : %-12d\n", t.info.ints[QBR_IINF_RD_NUMCONE]);
  t.printf(whichstream, "  Time             : %-8.1f\n", t.info.dou[QBR_DINF_RD_TIME]);
  return QBR_RES_OK;
}

}  // namespace qubor::formats
