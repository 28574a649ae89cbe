// The operator texts of the motion steps: catalogue section "CamGlue", the key is the constant's name unless given.
#pragma once

#include <span>

#include "ixocamglue/support/Texts.h"

namespace ixocamglue {

extern constinit TText SOpenShutter, SWaitShutter, SLaserOn, SDelay, SLaserOff;  // the timed shot's five lines
extern constinit TText SLaserOnDesc, SLaserOffOnlyDesc, SLaserOnTimeDesc;
extern constinit TText SGasOnDesc, SGasOffDesc, SWaitInportDesc;

// What steps do.
extern constinit TText SMoveToXYDesc, SSafeMoveToZDesc, SMoveToZDesc, SSafeMoveToXYDesc, SSafeMoveToWorkXYDesc,
    SSafeMoveToAssistXYDesc, SSafeMoveToXYZDesc, SSafeMoveToXYZFDesc, SLubricateDesc, SMoveToFDesc, SFollowDesc,
    SCapCaliDesc, SSimpleAutoCaliDesc, SAutoCaliDesc, SCleanCurveDesc, SManuCleanDesc, SAutoCleanDesc,
    SUninstallNozzleDesc, SInstallNozzleDesc, SOpenOutportDesc, SCloseOutportDesc;

// What a check is about.
extern constinit TText SNameMotionDriver, SNameMotionCard, SNameZAxis, SNameFollower, SNameCutHead, SNameInputs,
    SNameConfig, SNameX, SNameY, SNameZ, SNameWorkX, SNameWorkY, SNameFocus, SNameSpeed, SNameHeight, SNamePort,
    SNameCount, SNameLength, SNameWidth, SNameTurns, SNameTurnSpeed, SNameZDis, SNameLiftZ, SNameMotorAxis;

// Why a command was refused.
extern constinit TText SCheckStopped, SCheckNoDevice, SCheckOutOfRange, SCheckNotArrived, SCheckNotRaised,
    SCheckNoWorkOrigin, SCheckLaserOn, SCheckEmptyRange, SCheckFollowerForbidden, SCheckCaliFailed,
    SCheckCaliNotStarted, SCheckNotFollowing, SCheckNotSaved, SCheckFirstCali, SCheckNoCaliPos, SCheckBrushNotSet,
    SCheckNoBrushPos, SCheckNoTable, SCheckCounterNotSaved, SCheckRackDisabled, SCheckNoSlot, SCheckNoSlotPos,
    SCheckCapNotOpen, SCheckStageNotUp, SCheckSlotFree, SCheckSlotOccupied, SCheckStillOccupied, SCheckStillFree,
    SCheckNotOverSlot;

[[nodiscard]] std::span<TText* const> MotionTexts();

}  // namespace ixocamglue
