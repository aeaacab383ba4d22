// The UTF-8 paths of KFINDC (findCharUtf8) and KCOUNTC (countCharUtf8).
#include "module/frame/workers.h"

namespace txscan {

bool findCharUtf8(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*) { return false; }
bool countCharUtf8(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*) { return false; }

}  // namespace txscan
