// Device communication: the way in.
#pragma once

#include "ixocamglue/devcomm/Ucommtrans.h"
#include "ixocamglue/devcomm/Ucommtypes.h"
#include "ixocamglue/devcomm/Udevdatacomm.h"
#include "ixocamglue/devcomm/Umodbuscomm.h"
#include "ixocamglue/devcomm/Uupdatethrd.h"
