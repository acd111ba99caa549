// The public header from C++: compiles cleanly and links against the shared library.
#include "qubor.h"

int main() {
  QBRint32t major = 0;
  QBR_getversion(&major, nullptr, nullptr);
  return (major == QBR_VERSION_MAJOR && QBR_isinfinity(QBR_INFINITY)) ? 0 : 1;
}
