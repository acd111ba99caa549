// Entry points: reading and writing problem and solution files.
#include <string>

#include "api/frame.h"
#include "formats/formats.h"

using qubor::api::Task;
namespace api = qubor::api;
namespace formats = qubor::formats;

namespace {

// A null name means the data-file-name parameter; an empty one cannot be opened.
QBRrescode default_name(Task& t, const char* filename, std::string* name) {
  *name = filename ? filename : t.spar(QBR_SPAR_DATA_FILE_NAME).c_str();
  if (name->empty()) return QBR_REPORT(t, QBR_RES_ERR_FILE_OPEN, "");
  return QBR_RES_OK;
}

}  // namespace

extern "C" {

QBRrescode QBR_readdata(QBRtask_t task, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    std::string name;
    QBR_CHECK(default_name(t, filename, &name));
    return formats::read_data(t, name.c_str(), QBR_DATA_FORMAT_EXTENSION, QBR_COMPRESS_FREE);
  });
}

QBRrescode QBR_readdataautoformat(QBRtask_t task, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!filename) return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, "");
    return formats::read_data(t, filename, QBR_DATA_FORMAT_EXTENSION, QBR_COMPRESS_FREE);
  });
}

QBRrescode QBR_readdataformat(QBRtask_t task, const char* filename, QBRint32t format, QBRint32t compress) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    std::string name;
    QBR_CHECK(default_name(t, filename, &name));
    return formats::read_data(t, name.c_str(), format, compress);
  });
}

QBRrescode QBR_writedata(QBRtask_t task, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    std::string name;
    QBR_CHECK(default_name(t, filename, &name));
    return formats::write_data(t, name.c_str());
  });
}

QBRrescode QBR_readtask(QBRtask_t task, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!filename) return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, "");
    return formats::read_data(t, filename, QBR_DATA_FORMAT_TASK, QBR_COMPRESS_NONE, true);
  });
}

QBRrescode QBR_writetask(QBRtask_t task, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (!filename) return QBR_REPORT(t, QBR_RES_ERR_INVALID_FILE_NAME, "");
    return formats::write_data(t, filename, QBR_DATA_FORMAT_TASK, QBR_COMPRESS_NONE);
  });
}

QBRrescode QBR_readlpstring(QBRtask_t task, const char* data) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, data, "data"));
    return formats::read_string(t, data, QBR_DATA_FORMAT_LP);
  });
}

QBRrescode QBR_readjsonstring(QBRtask_t task, const char* data) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, data, "data"));
    return formats::read_string(t, data, QBR_DATA_FORMAT_JSON_TASK);
  });
}

QBRrescode QBR_readptfstring(QBRtask_t task, const char* data) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, data, "data"));
    return formats::read_string(t, data, QBR_DATA_FORMAT_PTF);
  });
}

QBRrescode QBR_readopfstring(QBRtask_t task, const char* data) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    QBR_CHECK(api::check_ptr(t, data, "data"));
    return formats::read_string(t, data, QBR_DATA_FORMAT_OP);
  });
}

QBRrescode QBR_readsummary(QBRtask_t task, QBRint32t whichstream) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (whichstream < QBR_STREAM_LOG || whichstream > QBR_STREAM_WRN) {
      return QBR_REPORT(t, QBR_RES_ERR_INVALID_STREAM, whichstream);
    }
    return formats::read_summary(t, whichstream);
  });
}

QBRrescode QBR_writesolution(QBRtask_t task, QBRint32t whichsol, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (whichsol < QBR_SOL_ITR || whichsol > QBR_SOL_ITG) {
      return QBR_REPORT(t, QBR_RES_ERR_INVALID_WHICHSOL);
    }
    return formats::write_solution(t, whichsol, filename);
  });
}

QBRrescode QBR_readsolution(QBRtask_t task, QBRint32t whichsol, const char* filename) {
  return api::task_frame(task, [&](Task& t) -> QBRrescode {
    if (whichsol < QBR_SOL_ITR || whichsol > QBR_SOL_ITG) {
      return QBR_REPORT(t, QBR_RES_ERR_INVALID_WHICHSOL);
    }
    return formats::read_solution(t, whichsol, filename);
  });
}

}  // extern "C"
