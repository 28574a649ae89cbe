// The way in to the step tree, the step registry and the state controller.
#pragma once

#include "ixocamglue/motion/Ucurvekeeper.h"
#include "ixocamglue/motion/Umotioncontroller.h"
#include "ixocamglue/motion/Umotionstop.h"
#include "ixocamglue/motion/Usteptree.h"
