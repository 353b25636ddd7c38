// Predicted beside observed uncertainty of field calibrations, over many devices of each kind.
//   field_study [SEEDS]   40 of each by default; ends with 1 where a bound is missed
#include "tests/quality/field/field_study.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// The job reports on descriptor 1; what is printed here goes to where that led before.
std::FILE* keep_output() {
  std::FILE* output = fdopen(dup(STDOUT_FILENO), "w");
  if (std::freopen("/dev/null", "w", stdout) == nullptr) std::exit(2);
  return output;
}

bool is_good(const field_study::Study& study) {
  return study.refused == 0 && study.ratio() >= 0.8 && study.ratio() <= 1.6 &&
         study.share_within_three() >= 0.95 && study.farthest <= 6.0 && study.not_fixed <= 1e-9;
}

}  // namespace

int main(int argc, char** argv) {
  const int seeds = argc > 1 ? std::atoi(argv[1]) : 40;
  std::FILE* output = keep_output();
  std::fprintf(output,
               "planes  bow  table    predicted  observed  ratio  within 3 sigma  farthest  "
               "largest part not fixed\n");
  bool good = true;
  for (const bool factory : {false, true}) {
    for (const int planes : {8, 24}) {
      for (const double bow : {0.4, 0.0}) {
        field_scene::Settings settings;
        settings.planes = planes;
        settings.bow = bow;
        settings.factory_table = factory;
        const field_study::Study study = field_study::run(settings, seeds);
        std::fprintf(output, "%6d  %.1f  %s  %9.4f %9.4f %6.2f %14.1f%% %9.1f  %.1e%s\n", planes,
                     bow, factory ? "factory" : "true   ", study.predicted, study.observed,
                     study.ratio(), 100.0 * study.share_within_three(), study.farthest,
                     study.not_fixed, is_good(study) ? "" : "  MISSED");
        std::fflush(output);
        good = good && is_good(study);
      }
    }
  }
  return good ? 0 : 1;
}
