// The UTF-8 paths of KFIND (findUtf8) and KCOUNTX (countUtf8).
#include "module/frame/workers.h"

namespace txscan {

bool findUtf8(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*) { return false; }
bool countUtf8(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*) { return false; }

}  // namespace txscan
