// Which capture frames lie off the others as a whole.
//
// in    the residuals of all samples against some surface
// out   per frame whether it is taken
//
// Frames of a device in practice are single lines, each at a depth of its own, so that a bowed
// sheet makes good frames look displaced against a plane: judge them against the best surface there
// is, and all of them anew, the dropped ones too, whenever there is a better one.
#pragma once

#include <cstdint>
#include <vector>

#include "quality/refinement/samples.h"

namespace kestrane::quality::refinement {

// Medians of the frames' residuals and how these scatter.
struct FrameMedians {
  std::vector<double> median;        // per frame
  std::vector<std::size_t> samples;  // per frame
  double middle = 0.0;               // median of the medians
  double spread = 0.0;               // 1.4826 times the median distance of a frame from it
};

// residuals  one per sample
// frames     number of frames
// scratch    any content
FrameMedians frame_medians(const std::vector<Sample>& samples, const std::vector<double>& residuals,
                           std::size_t frames, std::vector<double>& scratch);

// A frame is dropped whose median is farther from the middle than `cut` times the larger of the
// spread and scale / sqrt(its samples). With fewer than 8 frames, or a cut of 0, all are taken.
//
// scale  of the residuals of single samples
std::vector<std::uint8_t> taken_frames(const FrameMedians& medians, double scale, double cut);

}  // namespace kestrane::quality::refinement
