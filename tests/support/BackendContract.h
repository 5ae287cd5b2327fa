#pragma once

#include "kelCloud/Backend.h"

namespace OrvTest {

// What every storage backend promises the backup engine, checked on a live
// one whose container starts empty: whole writes (from memory and streamed),
// reads of ranges, listings by prefix with sizes, stat, overwrite, delete,
// and refusal of names outside the container. Reports through GoogleTest.
void exerciseObjects(Kel::Cloud::Backend& backend);

} // namespace OrvTest
