#include "syntax/CodeFactory.h"

namespace harbor {

// The page family registers here.
void registerHtmlParsers() {}

}  // namespace harbor
