// The life of a simulated device, from the factory to the field and back to work: calibrates its
// planes, brings its coefficients up to date, stores both, recalibrates it after a knock, and
// compensates it for a warmer day, each time against the known truth.
#include <cstdio>
#include <exception>
#include <optional>
#include <string>

#include "examples/arguments.h"
#include "examples/life/life.h"

namespace {

using device_life::kBow;
using device_life::kNoise;
using device_life::Life;
using device_life::Options;
using device_life::Seen;

constexpr char kUsage[] =
    "usage: device_life [--planes N] [--points N] [--optimise] [--seed N] [--out FOLDER]\n"
    "  --planes N   laser planes of the device, 1 to 100 (8)\n"
    "  --points N   points measured per plane, 1 to 1000000; fewer than 3500 leave sectors without "
    "a fit (20000)\n"
    "  --optimise   keep the table with optimised grid corners for what follows\n"
    "  --seed N     of the device and its noise (1)\n"
    "  --out FOLDER where the device's files go, made if it is not there (" DEVICE_LIFE_FOLDER
    ")\n"
    "Exit status 0: every call succeeded and every error is within its bound; 1: not so;\n"
    "2: the command line was not understood.\n";

void build_device(Life& life) {
  simulation::DeviceSettings settings;
  settings.planes = life.options.planes;
  settings.seed = life.options.seed;
  settings.bow = kBow;
  life.sheets = simulation::make_device(settings);
  std::printf(
      "Device %u: %d laser planes, %d points measured on each, noise %.3f mm, bow up to %.1f mm\n",
      life.options.seed, life.options.planes, life.options.points, kNoise, kBow);
  std::printf(
      "It is simulated, so the truth is known: every error below is against that truth,\n"
      "and a bound is the largest RMS error that bow and noise explain.\n");
}

void summarise(const Life& life) {
  const Seen& seen = life.seen;
  std::printf("\nWhat was seen, RMS errors in mm\n");
  std::printf("  factory calibration    table off the sheets by %.4f; points had noise of %.4f\n",
              seen.table_error, kNoise);
  std::printf("  coefficients           %d corner models moved by as much as one reading should\n",
              seen.models);
  std::printf("  files                  both read back as they were written, in %s\n",
              life.options.out.c_str());
  std::printf("  field calibration      a knock that moved the sheets by %.4f found to %.4f\n",
              seen.knock, seen.knock_error);
  std::printf(
      "  compensation           a warm device whose sheets moved by %.4f followed to %.4f\n",
      seen.warm_move, seen.warm_error);
}

// Findings, worst first, and what they come to.
void conclude(const Life& life) {
  const kestrane::quality::Judgement judgement =
      kestrane::quality::conclude(life.findings, device_life::limits());
  std::printf("\nFindings against the limits of this device\n");
  for (const kestrane::quality::Finding& finding : judgement.findings) {
    std::printf("  %-4s %-13s %s\n", name_of(finding.level), finding.id.c_str(),
                finding.text.c_str());
  }
  std::printf("Verdict: %s\n", judgement.verdict.c_str());
}

bool live(Life& life) {
  try {
    return factory_stage(life) && coefficient_stage(life) && field_stage(life) &&
           run_time_stage(life);
  } catch (const std::exception& trouble) {  // a file, or memory
    std::printf("%s\n", trouble.what());
    ++life.troubles;
    return false;
  }
}

// Exit status for a command line that asks for none of the life; none to live on.
std::optional<int> read_options(int argc, char** argv, Options& options) {
  examples::Arguments arguments(argc, argv);
  while (const auto name = arguments.next()) {
    bool understood = true;
    if (*name == "--help") {
      std::fputs(kUsage, stdout);
      return examples::kExitOk;
    }
    if (*name == "--planes") {
      understood = arguments.read_number(*name, 1, 100, options.planes);
    } else if (*name == "--points") {
      understood = arguments.read_number(*name, 1, 1000000, options.points);
    } else if (*name == "--seed") {
      understood = arguments.read_number<std::uint32_t>(*name, 0, 4294967295U, options.seed);
    } else if (*name == "--out") {
      const auto folder = arguments.next();
      understood = folder.has_value() && !folder->empty();
      if (understood) options.out = *folder;
    } else if (*name == "--optimise") {
      options.optimise = true;
    } else {
      std::fprintf(stderr, "unknown argument: %s\n", std::string(*name).c_str());
      understood = false;
    }
    if (!understood) {
      std::fputs(kUsage, stderr);
      return examples::kExitUsage;
    }
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  options.out = DEVICE_LIFE_FOLDER;
  const std::optional<int> early = read_options(argc, argv, options);
  if (early) return *early;

  Life life(options);
  build_device(life);
  const bool lived = live(life);
  if (!life.findings.empty()) conclude(life);
  if (lived && life.troubles == 0) {
    summarise(life);
    std::printf(
        "All calls succeeded, all RMS errors are within their bounds.\n"
        "\nNext: device_life --planes 100 (the largest device), --optimise (live with the "
        "optimised table),\n--seed 2 (another device); --help lists all.\n");
    return examples::kExitOk;
  }
  std::printf("\nTroubles: %d\n", life.troubles);
  return examples::kExitFailed;
}
