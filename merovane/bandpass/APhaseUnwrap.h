// APhaseUnwrap: removes the jumps of 2 pi from a series of phases taken along the channels.
#pragma once

// A small value object, one per series (one IF of one product of one record). Set `fresh` before the
// first phase of a series; each Add then gives the phase with every step between neighbours brought
// into the nearest of d, d - 2 pi, d + 2 pi (a step of exactly +-pi stays as it is).
class APhaseUnwrap {
public:
    // The unwrapped phase for the raw phase `phase`, both in radians. The first phase of a series
    // comes back unchanged.
    double Add(double phase);

    double prev = 0.0;   // last raw phase, radians
    double total = 0.0;  // unwrapped phase so far, radians
    bool fresh = true;   // set before the first phase of a series
};
