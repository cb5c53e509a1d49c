#include "db/memorypolicy.h"

#if __has_include(<malloc.h>)
#include <malloc.h>
#endif

namespace tabulon {

void mapLargeBlocks()
{
#if defined(M_MMAP_THRESHOLD)
    // A fixed threshold also stops the library from raising it after each freed block.
    mallopt(M_MMAP_THRESHOLD, 256 * 1024);
#endif
}

} // namespace tabulon
