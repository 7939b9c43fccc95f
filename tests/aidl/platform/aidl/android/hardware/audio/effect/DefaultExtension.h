// In the place of what the tree generates; see effect-impl/EffectImpl.h.
#pragma once
#include "effect-impl/EffectImpl.h"
