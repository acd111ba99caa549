// Entry points: names of the task, the objective and the items, and lookup by name.
#include "api/frame.h"
#include "task/problem_ops.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;
using tk::NameKind;

namespace {

QBRrescode check_kind_index(Task& t, NameKind kind, const char* argname, QBRint32t k) {
  switch (kind) {
    case NameKind::kVar: return api::check_index(t, api::IndexKind::kVariable, argname, k);
    case NameKind::kCon: return api::check_index(t, api::IndexKind::kConstraint, argname, k);
    case NameKind::kCone: return api::check_index(t, api::IndexKind::kCone, argname, k);
    case NameKind::kBarvar: return tk::check_item(t, k, t.problem.num_barvar, argname);
  }
  return QBR_RES_ERR_INTERNAL;
}

QBRrescode put_name(QBRtask_t task, NameKind kind, const char* argname, QBRint32t k, const char* name) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_kind_index(t, kind, argname, k));
    return tk::put_name(t, kind, k, name);
  });
}

QBRrescode get_name(QBRtask_t task, NameKind kind, const char* argname, QBRint32t k, QBRint32t sizename,
                    char* name) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_kind_index(t, kind, argname, k));
    return tk::copy_name(t, tk::names_of(t, kind).get(k), sizename, name);
  });
}

QBRrescode get_name_len(QBRtask_t task, NameKind kind, const char* argname, QBRint32t k, QBRint32t* len) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(check_kind_index(t, kind, argname, k));
    QBR_CHECK(api::check_ptr(t, len, "len"));
    *len = static_cast<QBRint32t>(tk::names_of(t, kind).get(k).size());
    return QBR_RES_OK;
  });
}

QBRrescode find(QBRtask_t task, NameKind kind, const char* name, QBRint32t* asgn, QBRint32t* index) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::find_name(t, kind, name, asgn, index); });
}

QBRrescode put_text(QBRtask_t task, std::pmr::string tk::Problem::*field, const char* text, const char* argname) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, text, argname));
    (t.problem.*field).assign(text);
    return QBR_RES_OK;
  });
}

QBRrescode get_text(QBRtask_t task, std::pmr::string tk::Problem::*field, QBRint32t size, char* out) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::copy_name(t, t.problem.*field, size, out); });
}

QBRrescode get_text_len(QBRtask_t task, std::pmr::string tk::Problem::*field, QBRint32t* len) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, len, "len"));
    *len = static_cast<QBRint32t>((t.problem.*field).size());
    return QBR_RES_OK;
  });
}

}  // namespace

extern "C" {

QBRrescode QBR_puttaskname(QBRtask_t task, const char* taskname) {
  return put_text(task, &tk::Problem::task_name, taskname, "taskname");
}
QBRrescode QBR_gettaskname(QBRtask_t task, QBRint32t sizetaskname, char* taskname) {
  return get_text(task, &tk::Problem::task_name, sizetaskname, taskname);
}
QBRrescode QBR_gettasknamelen(QBRtask_t task, QBRint32t* len) {
  return get_text_len(task, &tk::Problem::task_name, len);
}
QBRrescode QBR_putobjname(QBRtask_t task, const char* objname) {
  return put_text(task, &tk::Problem::obj_name, objname, "objname");
}
QBRrescode QBR_getobjname(QBRtask_t task, QBRint32t sizeobjname, char* objname) {
  return get_text(task, &tk::Problem::obj_name, sizeobjname, objname);
}
QBRrescode QBR_getobjnamelen(QBRtask_t task, QBRint32t* len) { return get_text_len(task, &tk::Problem::obj_name, len); }

QBRrescode QBR_putvarname(QBRtask_t task, QBRint32t j, const char* name) {
  return put_name(task, NameKind::kVar, "j", j, name);
}
QBRrescode QBR_getvarname(QBRtask_t task, QBRint32t j, QBRint32t sizename, char* name) {
  return get_name(task, NameKind::kVar, "j", j, sizename, name);
}
QBRrescode QBR_getvarnamelen(QBRtask_t task, QBRint32t j, QBRint32t* len) {
  return get_name_len(task, NameKind::kVar, "j", j, len);
}
QBRrescode QBR_getvarnameindex(QBRtask_t task, const char* somename, QBRint32t* asgn, QBRint32t* index) {
  return find(task, NameKind::kVar, somename, asgn, index);
}

QBRrescode QBR_putconname(QBRtask_t task, QBRint32t i, const char* name) {
  return put_name(task, NameKind::kCon, "i", i, name);
}
QBRrescode QBR_getconname(QBRtask_t task, QBRint32t i, QBRint32t sizename, char* name) {
  return get_name(task, NameKind::kCon, "i", i, sizename, name);
}
QBRrescode QBR_getconnamelen(QBRtask_t task, QBRint32t i, QBRint32t* len) {
  return get_name_len(task, NameKind::kCon, "i", i, len);
}
QBRrescode QBR_getconnameindex(QBRtask_t task, const char* somename, QBRint32t* asgn, QBRint32t* index) {
  return find(task, NameKind::kCon, somename, asgn, index);
}

QBRrescode QBR_putconename(QBRtask_t task, QBRint32t j, const char* name) {
  return put_name(task, NameKind::kCone, "j", j, name);
}
QBRrescode QBR_getconename(QBRtask_t task, QBRint32t j, QBRint32t sizename, char* name) {
  return get_name(task, NameKind::kCone, "j", j, sizename, name);
}
QBRrescode QBR_getconenamelen(QBRtask_t task, QBRint32t j, QBRint32t* len) {
  return get_name_len(task, NameKind::kCone, "j", j, len);
}
QBRrescode QBR_getconenameindex(QBRtask_t task, const char* somename, QBRint32t* asgn, QBRint32t* index) {
  return find(task, NameKind::kCone, somename, asgn, index);
}

QBRrescode QBR_putbarvarname(QBRtask_t task, QBRint32t j, const char* name) {
  return put_name(task, NameKind::kBarvar, "j", j, name);
}
QBRrescode QBR_getbarvarname(QBRtask_t task, QBRint32t j, QBRint32t sizename, char* name) {
  return get_name(task, NameKind::kBarvar, "j", j, sizename, name);
}
QBRrescode QBR_getbarvarnamelen(QBRtask_t task, QBRint32t j, QBRint32t* len) {
  return get_name_len(task, NameKind::kBarvar, "j", j, len);
}
QBRrescode QBR_getbarvarnameindex(QBRtask_t task, const char* somename, QBRint32t* asgn, QBRint32t* index) {
  return find(task, NameKind::kBarvar, somename, asgn, index);
}

}  // extern "C"
