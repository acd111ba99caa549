// Parameter operations of a task: set and get by index and by name, from text, and the
// parameter file. Values are checked against the ranges of the parameter tables; a rejected
// value leaves the old one in place. Every failure is reported through report().
#pragma once

#include <cstdint>

#include "qubor.h"
#include "task/task.h"

namespace qubor::task {

QBRrescode put_int_param(Task& t, int32_t index, int32_t value);
QBRrescode put_dou_param(Task& t, int32_t index, double value);
QBRrescode put_str_param(Task& t, int32_t index, const char* value);
// Index checks for the getters (QBR_RES_ERR_PARAM_INDEX).
QBRrescode check_param_index(Task& t, int type, int32_t index);

// Name to index for one type, reporting QBR_RES_ERR_PARAM_NAME_INT/_DOU/_STR when unknown.
QBRrescode resolve_param(Task& t, int type, const char* name, int32_t* index);
// Looks a name up in all three tables; type QBR_PAR_INVALID_TYPE when unknown.
void which_param(const char* name, int32_t* type, int32_t* index);
// Sets a parameter of any type from its name and a value given as text.
QBRrescode put_param_text(Task& t, const char* name, const char* value);

QBRrescode read_param_file(Task& t, const char* filename);
QBRrescode write_param_file(Task& t, const char* filename);

// Stores a string parameter value: a value that starts with a double quote is a quoted
// string (up to the next unescaped quote; backslash-quote gives a quote).
void assign_param_string(std::pmr::string& dst, const char* value);

}  // namespace qubor::task
