#include "syntax/CodeFactory.h"

namespace harbor {

// Languages with hooks of their own register here.
void registerLanguageParsers() {}

}  // namespace harbor
