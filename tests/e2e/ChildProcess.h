// The child-process launcher lives with the rest of the test support.
#pragma once

#include "support/ChildProcess.h"
