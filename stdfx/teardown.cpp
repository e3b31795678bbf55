// The toolkit's process-wide objects end with the library.
#include "runtime/module.h"
#include "singleton.h"

namespace stdfx {

void DestroySingletons() {
    DestroyTranslators();
    DestroyTables();
}

} // namespace stdfx

namespace kelp {
void module::DestroyToolkit() {
    stdfx::DestroySingletons();
}
} // namespace kelp
