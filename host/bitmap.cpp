#include "host/bitmap.h"

std::string BitmapInfo::Filename() const {
  // Both separators count: a name entered on the host's own platform uses backslashes.
  const std::size_t slash = name_.find_last_of("/\\");
  return slash == std::string::npos ? name_ : name_.substr(slash + 1);
}
