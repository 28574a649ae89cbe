// Stops what moves, device by device; the error path of every tree and of the state controller. State thread.
#pragma once

namespace ixocamglue {

// Stops the focus axis of the cutting head, where there is one.
void StopFocusMotion();
// Stops every follower, the XY axes and the focus; each is tried, the first failure is thrown at the end.
void StopAllMotion();

}  // namespace ixocamglue
