// The UTF-8 paths of KCOUNTW (countWordsUtf8) and KFINDW (findWordUtf8).
#include "module/frame/workers.h"

namespace txscan {

bool countWordsUtf8(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*) { return false; }
bool findWordUtf8(ArgumentFrame*, double*, EncodingHandle*, std::int32_t*) { return false; }

}  // namespace txscan
