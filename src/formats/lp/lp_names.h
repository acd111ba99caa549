// Names in LP files: the characters a name may hold, shared by the reader and the writer.
//
// Letters, digits and ! " # $ % & / ( ) , . ; ? @ _ ' ` { } | ~. A name does not begin with a
// digit or a full stop (it would read as a number); names that need other characters are
// written and read between double quotes when quoted names are switched on.
#pragma once

#include <string_view>

namespace qubor::formats {

inline bool lp_name_char(char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  switch (c) {
    case '!':
    case '"':
    case '#':
    case '$':
    case '%':
    case '&':
    case '/':
    case '(':
    case ')':
    case ',':
    case '.':
    case ';':
    case '?':
    case '@':
    case '_':
    case '\'':
    case '`':
    case '{':
    case '}':
    case '|':
    case '~':
      return true;
    default:
      return false;
  }
}

inline bool lp_name_start(char c) { return lp_name_char(c) && !(c >= '0' && c <= '9') && c != '.'; }

// True when `s` can stand in an LP file without quotes. Words the reader takes as keywords are
// excluded, and so are names that begin like a number's exponent after a sign ("e12").
bool lp_plain_name(std::string_view s);

}  // namespace qubor::formats
