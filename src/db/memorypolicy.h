// How the process asks the C library for memory, set once at start-up.
#pragma once

namespace tabulon {

// Grid columns and results grow by reallocating large buffers. Served from the heap, every
// growth leaves a freed copy behind that the process keeps; mapped, a growth moves pages
// instead of copying them and a freed buffer goes back to the system at once. So every block
// from 256 KiB up is mapped. Does nothing where the C library offers no such setting.
void mapLargeBlocks();

} // namespace tabulon
