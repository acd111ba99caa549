// Entry points: response codes, callback codes and information items.
#include <cstdio>

#include "api/frame.h"
#include "platform/text.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;
namespace platform = qubor::platform;

namespace {

QBRrescode bad_index(Task& t, int inftype) {
  QBRrescode code = inftype == QBR_INF_DOU_TYPE   ? QBR_RES_ERR_INF_DOU_INDEX
                    : inftype == QBR_INF_INT_TYPE ? QBR_RES_ERR_INF_INT_INDEX
                                                  : QBR_RES_ERR_INF_LINT_INDEX;
  return QBR_REPORT(t, code);
}

QBRrescode bad_name(Task& t, int inftype, const char* name) {
  QBRrescode code = inftype == QBR_INF_DOU_TYPE   ? QBR_RES_ERR_INF_DOU_NAME
                    : inftype == QBR_INF_INT_TYPE ? QBR_RES_ERR_INF_INT_NAME
                                                  : QBR_RES_ERR_INF_LINT_NAME;
  return QBR_REPORT(t, code, name ? name : "");
}

template <class T, class V>
QBRrescode get_item(QBRtask_t task, int inftype, QBRint32t which, T* out, const V& values) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (which < 0 || which >= tk::info_count(inftype)) return bad_index(t, inftype);
    QBR_CHECK(api::check_ptr(t, out, "value"));
    *out = values(t)[static_cast<size_t>(which)];
    return QBR_RES_OK;
  });
}

}  // namespace

extern "C" {

QBRrescode QBR_getresponseclass(QBRrescode r, QBRint32t* rc) {
  if (rc) *rc = tk::response_class(r);
  return QBR_RES_OK;
}

QBRrescode QBR_getcodedesc(QBRrescode code, char* symname, char* str) {
  const tk::ResponseRow* row = tk::find_response(code);
  if (row) {
    if (symname) platform::copy_bounded(symname, platform::kMaxStr, row->symbol);
    if (str) platform::copy_bounded(str, platform::kMaxStr, row->description);
  } else {
    if (symname) symname[0] = '\0';
    if (str) std::snprintf(str, platform::kMaxStr, "No description for the code %d is available.", code);
  }
  return QBR_RES_OK;
}

QBRrescode QBR_callbackcodetostr(QBRint32t code, char* callbackcodestr) {
  if (!callbackcodestr) return QBR_RES_OK;
  const char* name = tk::callback_code_name(code);
  platform::copy_bounded(callbackcodestr, platform::kMaxStr, name ? name : "");
  return QBR_RES_OK;
}

QBRrescode QBR_getdouinf(QBRtask_t task, QBRint32t whichdinf, QBRrealt* dvalue) {
  return get_item(task, QBR_INF_DOU_TYPE, whichdinf, dvalue, [](Task& t) -> auto& { return t.info.dou; });
}

QBRrescode QBR_getintinf(QBRtask_t task, QBRint32t whichiinf, QBRint32t* ivalue) {
  return get_item(task, QBR_INF_INT_TYPE, whichiinf, ivalue, [](Task& t) -> auto& { return t.info.ints; });
}

QBRrescode QBR_getlintinf(QBRtask_t task, QBRint32t whichliinf, QBRint64t* ivalue) {
  return get_item(task, QBR_INF_LINT_TYPE, whichliinf, ivalue, [](Task& t) -> auto& { return t.info.lint; });
}

QBRrescode QBR_getnadouinf(QBRtask_t task, const char* infitemname, QBRrealt* dvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    int i = tk::find_info(QBR_INF_DOU_TYPE, infitemname);
    if (i < 0) return bad_name(t, QBR_INF_DOU_TYPE, infitemname);
    QBR_CHECK(api::check_ptr(t, dvalue, "dvalue"));
    *dvalue = t.info.dou[static_cast<size_t>(i)];
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnaintinf(QBRtask_t task, const char* infitemname, QBRint32t* ivalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    int i = tk::find_info(QBR_INF_INT_TYPE, infitemname);
    if (i < 0) return bad_name(t, QBR_INF_INT_TYPE, infitemname);
    QBR_CHECK(api::check_ptr(t, ivalue, "ivalue"));
    *ivalue = t.info.ints[static_cast<size_t>(i)];
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getinfindex(QBRtask_t task, QBRint32t inftype, const char* infname, QBRint32t* infindex) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (tk::info_count(inftype) < 0) return QBR_REPORT(t, QBR_RES_ERR_INF_TYPE);
    int i = tk::find_info(inftype, infname);
    if (i < 0) return bad_name(t, inftype, infname);
    QBR_CHECK(api::check_ptr(t, infindex, "infindex"));
    *infindex = i;
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getinfname(QBRtask_t task, QBRint32t inftype, QBRint32t whichinf, char* infname) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (tk::info_count(inftype) < 0) return QBR_REPORT(t, QBR_RES_ERR_INF_TYPE);
    const char* name = tk::info_name(inftype, whichinf);
    if (!name) return bad_index(t, inftype);
    QBR_CHECK(api::check_ptr(t, infname, "infname"));
    platform::copy_bounded(infname, platform::kMaxStr, name);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getinfmax(QBRtask_t task, QBRint32t inftype, QBRint32t* infmax) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, infmax, "infmax"));
    int n = tk::info_count(inftype);
    *infmax = n < 0 ? 0 : n;
    return n < 0 ? QBR_REPORT(t, QBR_RES_ERR_INF_TYPE) : QBR_RES_OK;
  });
}

}  // extern "C"
