// Entry points: parameters by index, by name, from text and from parameter files.
#include <cstring>

#include "api/frame.h"
#include "platform/text.h"
#include "task/params.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace tk = qubor::task;
namespace platform = qubor::platform;

namespace {

// Copies a string parameter into a caller buffer of maxlen bytes; len gets the full length.
QBRrescode copy_str_param(Task& t, QBRint32t index, QBRint32t maxlen, QBRint32t* len, char* value) {
  const std::pmr::string& v = t.spar(index);
  if (len) *len = static_cast<QBRint32t>(v.size());
  if (value && maxlen > 0) platform::copy_bounded(value, static_cast<size_t>(maxlen), v.c_str());
  return QBR_RES_OK;
}

// A copy of a string parameter with room for numaddchr more characters, allocated from the
// task's memory (released with QBR_freetask).
QBRrescode alloc_str_param(Task& t, QBRint32t index, QBRint32t numaddchr, char** value) {
  QBR_CHECK(api::check_ptr(t, value, "value"));
  if (numaddchr < 0) return QBR_REPORT(t, QBR_RES_ERR_ARG_IS_TOO_SMALL, "numaddchr");
  const std::pmr::string& v = t.spar(index);
  char* p = static_cast<char*>(t.env.memory.calloc_block(v.size() + static_cast<size_t>(numaddchr) + 1, 1, __FILE__, __LINE__));
  if (!p) return QBR_REPORT(t, QBR_RES_ERR_SPACE);
  std::memcpy(p, v.data(), v.size());
  *value = p;
  return QBR_RES_OK;
}

QBRrescode is_par_name(QBRtask_t task, int type, const char* parname, QBRint32t* param) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, parname, "parname"));
    QBR_CHECK(api::check_ptr(t, param, "param"));
    return tk::resolve_param(t, type, parname, param);
  });
}

}  // namespace

extern "C" {

QBRrescode QBR_putintparam(QBRtask_t task, QBRint32t param, QBRint32t parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_int_param(t, param, parvalue); });
}

QBRrescode QBR_putdouparam(QBRtask_t task, QBRint32t param, QBRrealt parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_dou_param(t, param, parvalue); });
}

QBRrescode QBR_putstrparam(QBRtask_t task, QBRint32t param, const char* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::put_str_param(t, param, parvalue); });
}

QBRrescode QBR_getintparam(QBRtask_t task, QBRint32t param, QBRint32t* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_param_index(t, QBR_PAR_INT_TYPE, param));
    QBR_CHECK(api::check_ptr(t, parvalue, "parvalue"));
    *parvalue = t.ipar(param);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getdouparam(QBRtask_t task, QBRint32t param, QBRrealt* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_param_index(t, QBR_PAR_DOU_TYPE, param));
    QBR_CHECK(api::check_ptr(t, parvalue, "parvalue"));
    *parvalue = t.dpar(param);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getstrparam(QBRtask_t task, QBRint32t param, QBRint32t maxlen, QBRint32t* len, char* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_param_index(t, QBR_PAR_STR_TYPE, param));
    return copy_str_param(t, param, maxlen, len, parvalue);
  });
}

QBRrescode QBR_getstrparamlen(QBRtask_t task, QBRint32t param, QBRint32t* len) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_param_index(t, QBR_PAR_STR_TYPE, param));
    QBR_CHECK(api::check_ptr(t, len, "len"));
    *len = static_cast<QBRint32t>(t.spar(param).size());
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getstrparamal(QBRtask_t task, QBRint32t param, QBRint32t numaddchr, char** value) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(tk::check_param_index(t, QBR_PAR_STR_TYPE, param));
    return alloc_str_param(t, param, numaddchr, value);
  });
}

QBRrescode QBR_putnaintparam(QBRtask_t task, const char* paramname, QBRint32t parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBRint32t i = -1;
    QBR_CHECK(tk::resolve_param(t, QBR_PAR_INT_TYPE, paramname, &i));
    return tk::put_int_param(t, i, parvalue);
  });
}

QBRrescode QBR_putnadouparam(QBRtask_t task, const char* paramname, QBRrealt parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBRint32t i = -1;
    QBR_CHECK(tk::resolve_param(t, QBR_PAR_DOU_TYPE, paramname, &i));
    return tk::put_dou_param(t, i, parvalue);
  });
}

QBRrescode QBR_putnastrparam(QBRtask_t task, const char* paramname, const char* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBRint32t i = -1;
    QBR_CHECK(tk::resolve_param(t, QBR_PAR_STR_TYPE, paramname, &i));
    return tk::put_str_param(t, i, parvalue);
  });
}

QBRrescode QBR_getnaintparam(QBRtask_t task, const char* paramname, QBRint32t* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBRint32t i = -1;
    QBR_CHECK(tk::resolve_param(t, QBR_PAR_INT_TYPE, paramname, &i));
    QBR_CHECK(api::check_ptr(t, parvalue, "parvalue"));
    *parvalue = t.ipar(i);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnadouparam(QBRtask_t task, const char* paramname, QBRrealt* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBRint32t i = -1;
    QBR_CHECK(tk::resolve_param(t, QBR_PAR_DOU_TYPE, paramname, &i));
    QBR_CHECK(api::check_ptr(t, parvalue, "parvalue"));
    *parvalue = t.dpar(i);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnastrparam(QBRtask_t task, const char* paramname, QBRint32t maxlen, QBRint32t* len,
                             char* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBRint32t i = -1;
    QBR_CHECK(tk::resolve_param(t, QBR_PAR_STR_TYPE, paramname, &i));
    return copy_str_param(t, i, maxlen, len, parvalue);
  });
}

QBRrescode QBR_getnastrparamal(QBRtask_t task, const char* paramname, QBRint32t numaddchr, char** value) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBRint32t i = -1;
    QBR_CHECK(tk::resolve_param(t, QBR_PAR_STR_TYPE, paramname, &i));
    return alloc_str_param(t, i, numaddchr, value);
  });
}

QBRrescode QBR_putparam(QBRtask_t task, const char* parname, const char* parvalue) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, parname, "parname"));
    return tk::put_param_text(t, parname, parvalue);
  });
}

QBRrescode QBR_isintparname(QBRtask_t task, const char* parname, QBRint32t* param) {
  return is_par_name(task, QBR_PAR_INT_TYPE, parname, param);
}

QBRrescode QBR_isdouparname(QBRtask_t task, const char* parname, QBRint32t* param) {
  return is_par_name(task, QBR_PAR_DOU_TYPE, parname, param);
}

QBRrescode QBR_isstrparname(QBRtask_t task, const char* parname, QBRint32t* param) {
  return is_par_name(task, QBR_PAR_STR_TYPE, parname, param);
}

QBRrescode QBR_whichparam(QBRtask_t task, const char* parname, QBRint32t* partype, QBRint32t* param) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, partype, "partype"));
    QBR_CHECK(api::check_ptr(t, param, "param"));
    tk::which_param(parname, partype, param);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getparamname(QBRtask_t task, QBRint32t partype, QBRint32t param, char* parname) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (partype != QBR_PAR_INT_TYPE && partype != QBR_PAR_DOU_TYPE && partype != QBR_PAR_STR_TYPE)
      return QBR_REPORT(t, QBR_RES_ERR_PARAM_TYPE, partype);
    QBR_CHECK(tk::check_param_index(t, partype, param));
    QBR_CHECK(api::check_ptr(t, parname, "parname"));
    const char* name = partype == QBR_PAR_INT_TYPE   ? tk::int_param(param).name
                       : partype == QBR_PAR_DOU_TYPE ? tk::dou_param(param).name
                                                     : tk::str_param(param).name;
    platform::copy_bounded(parname, platform::kMaxStr, name);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_getnumparam(QBRtask_t task, QBRint32t partype, QBRint32t* numparam) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, numparam, "numparam"));
    switch (partype) {
      case QBR_PAR_INT_TYPE: *numparam = tk::kNumIntParams; return QBR_RES_OK;
      case QBR_PAR_DOU_TYPE: *numparam = tk::kNumDouParams; return QBR_RES_OK;
      case QBR_PAR_STR_TYPE: *numparam = tk::kNumStrParams; return QBR_RES_OK;
      default: *numparam = 0; return QBR_REPORT(t, QBR_RES_ERR_PARAM_TYPE, partype);
    }
  });
}

QBRrescode QBR_getparammax(QBRtask_t task, QBRint32t partype, QBRint32t* parammax) {
  return QBR_getnumparam(task, partype, parammax);
}

QBRbooleant QBR_symnamtovalue(const char* name, char* value) {
  const char* v = tk::symbol_value(name);
  if (!v) return 0;
  if (value) platform::copy_bounded(value, platform::kMaxStr, v);
  return 1;
}

QBRrescode QBR_iparvaltosymnam(QBRenv_t env, QBRint32t whichparam, QBRint32t whichvalue, char* symbolicname) {
  return api::env_frame(env, [&](qubor::api::Env& e) -> QBRrescode {
    if (!symbolicname) return api::report_env(e, QBR_RES_ERR_NULL_POINTER, {"symbolicname"});
    symbolicname[0] = '\0';
    if (whichparam < 0 || whichparam >= tk::kNumIntParams) return QBR_RES_OK;
    const char* sym = tk::enum_symbol(tk::int_param(whichparam).group, whichvalue);
    if (sym) platform::copy_bounded(symbolicname, platform::kMaxStr, sym);
    return QBR_RES_OK;
  });
}

QBRrescode QBR_setdefaults(QBRtask_t task) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    t.set_defaults();
    return QBR_RES_OK;
  });
}

QBRrescode QBR_readparamfile(QBRtask_t task, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::read_param_file(t, filename); });
}

QBRrescode QBR_writeparamfile(QBRtask_t task, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode { return tk::write_param_file(t, filename); });
}

}  // extern "C"
