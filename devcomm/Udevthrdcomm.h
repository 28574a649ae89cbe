// Device communication: the way in.
#pragma once

#include "devcomm/Ucommtrans.h"
#include "devcomm/Ucommtypes.h"
#include "devcomm/Udevdatacomm.h"
#include "devcomm/Umodbuscomm.h"
#include "devcomm/Uupdatethrd.h"
