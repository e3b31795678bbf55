// The process-wide registry of the built-in stages. The first manager made creates the
// stages (InitGlobal), the last one destroyed releases them (EndGlobal); between the
// two the list does not change, and Init reads it without a lock.
#pragma once

#include <list>

#include <kelp/kxconv.h>

namespace kelp {

class CConversionManager;

namespace conv {

// Counts a new manager in; the first one creates the built-in stages through the
// manager's AddConverter and moves them to the global list.
void ManagerCreated(CConversionManager* manager);
// Counts a manager out; the last one releases the stages.
void ManagerDestroyed();
// Replaces *into with the built-in stages, in search order (none when no manager
// lives).
void CopyGlobalConverters(std::list<IConverter*>* into);
// How many managers live.
int ManagerCount();

} // namespace conv
} // namespace kelp
