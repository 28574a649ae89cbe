// How long things take in a controller that runs in real time and is talked to over its wire.
#pragma once

namespace ixocamglue::bench {

// From the moment at which a stop, or all-off, is sent to the device call that it causes, and to standby; with twenty
// clients that follow the events and a thousand status requests a second.
void MeasureStops(int rounds);
// How much later than due the ticks of a procedure come.
void MeasureTicks(int seconds);
// From an event to each of the clients that follow.
void MeasureEvents(int seconds);

}  // namespace ixocamglue::bench
