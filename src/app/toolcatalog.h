// The composition root: every tool window registers with the main window here, by the name
// of the menu command that opens it.
#pragma once

namespace tabulon {
class MDIForm1;
void registerTools(MDIForm1 &main);
} // namespace tabulon
