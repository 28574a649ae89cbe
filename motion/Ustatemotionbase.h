// The way in to the step tree, the step registry and the state controller.
#pragma once

#include "motion/Umotioncontroller.h"
#include "motion/Usteptree.h"
