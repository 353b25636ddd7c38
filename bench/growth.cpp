// How the cost of each job grows with points, planes and frames, and how much memory a job takes.
//
//   growth              all studies, as tables in Markdown
//   growth factory fast only the studies whose names begin so
//
// Times are those of the fastest and of the cheapest of several runs; an exponent p says that the
// cost grew like size^p over the sizes of the table. Every run's status is checked.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/growth_measure.h"
#include "bench/silenced_output.h"
#include "kestrane/buffers.h"
#include "kestrane/compensator.h"
#include "kestrane/factory_calib.h"
#include "kestrane/fast_calib.h"
#include "kestrane/files.h"
#include "simulation/host_table.h"
#include "simulation/scanner.h"

namespace {

using growth::Cost;
using simulation::HostTable;
using Job = std::function<void()>;

void must(_KESTRANE_STATUS status, const char* operation) {
  if (status == KESTRANE_OK) return;
  std::fprintf(stderr, "growth: %s returned %d\n", operation, static_cast<int>(status));
  std::exit(1);
}

// One table: a job made for each size, its cost there, and the exponents over all sizes.
struct Study {
  const char* name;
  const char* title;
  const char* unit;  // of the sizes
  std::vector<int> sizes;
  std::function<Job(int)> make_job;
};

void run(const Study& study) {
  std::printf("\n## %s\n\n| %s | wall, ms | processor, ms | memory at the peak, MB |\n",
              study.title, study.unit);
  std::printf("|---|---|---|---|\n");
  std::vector<double> sizes, walls, processors;
  for (const int size : study.sizes) {
    const SilencedOutput silenced;
    const Job job = study.make_job(size);
    const std::size_t memory = growth::peak_memory_of(job);
    const Cost cost = growth::time_of(job);
    std::printf("| %d | %.3f | %.3f | %.2f |\n", size, 1e3 * cost.wall, 1e3 * cost.processor,
                1e-6 * static_cast<double>(memory));
    std::fflush(stdout);
    sizes.push_back(size);
    walls.push_back(cost.wall);
    processors.push_back(cost.processor);
  }
  std::printf("| exponent | %.2f | %.2f | |\n", growth::fitted_exponent(sizes, walls),
              growth::fitted_exponent(sizes, processors));
  std::fflush(stdout);
}

// --- Factory calibration ------------------------------------------------------------------------

std::vector<simulation::Cloud> measure_factory(int planes, int points) {
  std::vector<simulation::Cloud> clouds;
  simulation::CloudSettings settings;
  settings.points = points;
  settings.outlier_share = 0.01;
  for (const simulation::Sheet& sheet : simulation::make_device({.planes = planes})) {
    clouds.push_back(simulation::measure(sheet, settings));
    ++settings.seed;
  }
  return clouds;
}

Job factory_job(int planes, int points, kestrane::_KESTRANE_OPTIM_FLAG flag) {
  auto clouds = std::make_shared<std::vector<simulation::Cloud>>(measure_factory(planes, points));
  auto calib = std::make_shared<kestrane::KESTRANE_LASER_FAC_CALIB>();
  must(calib->init(), "init");
  must(calib->set_optimize_flag(flag), "set_optimize_flag");
  return [=] {
    for (int p = 0; p < planes; ++p) {
      simulation::Cloud& cloud = (*clouds)[static_cast<std::size_t>(p)];
      must(calib->factory_calib(p, simulation::record_of(cloud)), "factory_calib");
    }
  };
}

// --- Compensation -------------------------------------------------------------------------------

// A table without measuring errors.
std::shared_ptr<HostTable> true_table(const std::vector<simulation::Sheet>& sheets) {
  auto table = std::make_shared<HostTable>(static_cast<int>(sheets.size()));
  kestrane::LASER_PLANE_BLOCK_INFOS_GROUP group;
  must(group.init(1), "init");
  *table->infos().grids = *group.grids;
  for (std::size_t p = 0; p < sheets.size(); ++p) {
    _MRV_LASER_PLANE_BLOCK_INFO& row = table->infos().planes[p];
    simulation::fill_true_table(sheets[p], {}, table->grids(), row.block);
    std::copy_n(simulation::whole_plane(sheets[p]).v, 3, row.laser_plane_R);
  }
  return table;
}

Job compensation_job(int planes) {
  const auto table = true_table(simulation::make_device({.planes = planes}));
  auto compensator = std::make_shared<kestrane::KESTRANE_LASER_COMPENSATOR>();
  must(compensator->init(), "init");
  must(compensator->set_extrinsic_matrix({{1, 0, 0, 0, 1, 0, 0, 0, 1}, {110.0, 3.0, -7.0}}),
       "set_extrinsic_matrix");
  must(compensator->set_compensate_param({26.0, 21.0, 0.75, 0.5, 1.5, 1e-6, 2e-5, 1e-4}, 0, planes),
       "set_compensate_param");
  return [=] {
    must(compensator->set_laser_plane_param(table->infos()), "set_laser_plane_param");
    must(compensator->compensate(0, planes), "compensate");
    must(compensator->get_compensate_result(table->infos()), "get_compensate_result");
  };
}

// --- Fast calibration ---------------------------------------------------------------------------

using FrameLists = std::vector<std::vector<_KESTRANE_ID_POINT3D>>;

FrameLists measure_field(const std::vector<simulation::Sheet>& sheets, int points, int frames) {
  const simulation::Placement knock =
      simulation::rigid_motion({3e-4, -2e-4, 4e-4}, {0.15, 0.0, -0.1});
  simulation::CloudSettings settings = simulation::field_cloud_settings();
  settings.points = points;
  settings.frames = frames;
  settings.bad_frames = frames / 10;
  settings.outlier_share = 0.01;
  FrameLists lists;
  for (const simulation::Sheet& sheet : sheets) {
    lists.push_back(simulation::measure(sheet, knock, settings).points);
    ++settings.seed;
  }
  return lists;
}

Job fast_job(int planes, int points, int frames) {
  const auto sheets = simulation::make_device({.planes = planes});
  const auto lists = std::make_shared<FrameLists>(measure_field(sheets, points, frames));
  auto calib = std::make_shared<kestrane::KESTRANE_LASER_FAST_CALIB>();
  must(calib->init(), "init");
  must(calib->set_laser_plane_standard(true_table(sheets)->infos()), "set_laser_plane_standard");
  return [=] { must(calib->fast_calib(*lists, 0, planes - 1), "fast_calib"); };
}

Job residual_job(int points) {
  constexpr int kPlanes = 10;
  const auto sheets = simulation::make_device({.planes = kPlanes});
  auto engine = std::make_shared<kestrane::KestraneLaserFastCalibrator>();
  must(engine->init(), "init");
  must(engine->set_laser_plane_standard(true_table(sheets)->infos()), "set_laser_plane_standard");
  auto sets = std::make_shared<std::vector<Eigen::Matrix<double, 3, -1>>>();
  for (const auto& list : measure_field(sheets, points / kPlanes, 20)) {
    Eigen::Matrix<double, 3, -1>& set =
        sets->emplace_back(3, static_cast<Eigen::Index>(list.size()));
    for (Eigen::Index i = 0; i < set.cols(); ++i) {
      const _KESTRANE_ID_POINT3D& point = list[static_cast<std::size_t>(i)];
      set.col(i) << point.x, point.y, point.z;
    }
  }
  auto residuals = std::make_shared<std::vector<std::vector<double>>>(sets->size());
  return [=] {
    engine->cal_residual(*sets, 0, kPlanes - 1, {{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}},
                         *residuals);
  };
}

// --- Coefficients and files ---------------------------------------------------------------------

struct CoefficientData {
  kestrane::LASER_PLANE_INDICATOR_MANAGER indicator_owner;
  kestrane::LASER_PLANE_GRID_CORNERS_MANAGER corner_owner;
  kestrane::LASER_COMPENSATOR_COEFFS_MANAGER coefficient_owner;
  kestrane::_LASER_PLANE_INDICATORS_INFOS* indicators = nullptr;
  kestrane::_LASER_PLANE_GRID_CORNERS_INFOS* corners = nullptr;
  kestrane::_COMPENSATOR_COEFFS* coefficients = nullptr;
};

// Every corner measured, 0.005 off what its old model says.
std::shared_ptr<CoefficientData> coefficient_data(int planes) {
  auto data = std::make_shared<CoefficientData>();
  must(data->indicator_owner.init(planes), "init");
  must(data->corner_owner.init(planes), "init");
  must(data->coefficient_owner.init(planes), "init");
  must(data->indicator_owner.get_laser_plane_indicator(planes, data->indicators), "get");
  must(data->corner_owner.get_laser_plane_grid_corners(planes, data->corners), "get");
  must(data->coefficient_owner.get_compensator_coeffs(planes, data->coefficients), "get");
  for (int p = 0; p < planes; ++p) {
    for (int i = 0; i < 15; ++i) {
      for (int j = 0; j < 50; ++j) {
        data->indicators->planes[p].lines[i].cells[j] = {{0.1, 0.01, 0.05}};
      }
    }
    for (int i = 0; i < 16; ++i) {
      for (int k = 0; k < 51; ++k) {
        data->corners->planes[p].lines[i].cells[k].v[0] = 120.005;
        data->coefficients->opt_coeffs->planes[p].lines[i].cells[k] = {{-0.003, 1.0, -119.91}};
      }
    }
  }
  return data;
}

Job coefficient_job(int planes) {
  const auto data = coefficient_data(planes);
  const auto result = coefficient_data(planes);
  const auto engine = std::make_shared<kestrane::KestraneLaserFastCalibrator>();
  return [=] {
    must(engine->calib(*data->indicators, *data->corners, 30.0, *data->coefficients,
                       *result->coefficients),
         "calib");
  };
}

Job coefficient_file_job(int planes) {
  const auto data = coefficient_data(planes);
  return [=] {
    must(kestrane::save_compensator_coeffs(*data->coefficients, "growth.bin"), "save");
    must(kestrane::read_compensator_coeffs("growth.bin", *data->coefficients), "read");
    std::remove("growth.bin");
  };
}

Job table_file_job(int planes) {
  const auto group = std::make_shared<kestrane::LASER_PLANE_BLOCK_INFOS_GROUP>();
  must(group->init(planes), "init");
  kestrane::_LASER_PLANE_BLOCK_INFOS* record = nullptr;
  must(group->get_laser_plane_info(planes, record), "get_laser_plane_info");
  const auto sheets = simulation::make_device({.planes = planes});
  for (int p = 0; p < planes; ++p) {
    simulation::fill_true_table(sheets[static_cast<std::size_t>(p)], {}, *record->grids,
                                record->planes[p].block);
  }
  return [group] {
    must(kestrane::save_plane_block_infos(*group, "growth.txt"), "save");
    must(kestrane::read_plane_block_infos("growth.txt", *group), "read");
    std::remove("growth.txt");
  };
}

// --- All of them --------------------------------------------------------------------------------

std::vector<Study> all_studies() {
  using kestrane::KESTRANE_OPTIM_OFF;
  using kestrane::KESTRANE_OPTIM_ON;
  const std::vector<int> planes = {1, 2, 5, 10, 20, 50, 100};
  return {
      {"factory_points",
       "Factory calibration, one plane, no optimisation",
       "points",
       {10000, 20000, 50000, 100000, 200000, 500000, 1000000},
       [](int n) { return factory_job(1, n, KESTRANE_OPTIM_OFF); }},
      {"factory_optimised_points",
       "Factory calibration, one plane, optimised",
       "points",
       {10000, 20000, 50000, 100000, 200000, 500000, 1000000},
       [](int n) { return factory_job(1, n, KESTRANE_OPTIM_ON); }},
      {"factory_planes",
       "Factory calibration, 20,000 points a plane, no optimisation",
       "planes",
       {1, 2, 5, 10, 20, 50},
       [](int n) { return factory_job(n, 20000, KESTRANE_OPTIM_OFF); }},
      {"compensation_planes", "Compensation: table in, compensate, table out", "planes", planes,
       compensation_job},
      // Few points are solved another way than many: an exponent over both would say nothing.
      {"fast_few_points",
       "Fast calibration of few points, 10 planes, 20 frames",
       "points a plane",
       {100, 200, 400, 800},
       [](int n) { return fast_job(10, n, 20); }},
      {"fast_points",
       "Fast calibration, 10 planes, 20 frames",
       "points a plane",
       {1000, 2000, 4000, 8000, 16000, 32000},
       [](int n) { return fast_job(10, n, 20); }},
      {"fast_planes",
       "Fast calibration, 2,000 points a plane, 20 frames",
       "planes",
       {5, 10, 20, 50, 100},
       [](int n) { return fast_job(n, 2000, 20); }},
      {"fast_frames",
       "Fast calibration, 10 planes, 4,000 points a plane",
       "frames",
       {10, 20, 50, 100, 200, 400},
       [](int n) { return fast_job(10, 4000, n); }},
      {"residual_points",
       "Residual measurement, 10 planes",
       "points",
       {10000, 100000, 1000000},
       residual_job},
      {"coefficient_planes", "Coefficient calibration", "planes", planes, coefficient_job},
      {"file_coefficients", "Coefficient file, saved and read", "planes", planes,
       coefficient_file_job},
      {"file_table", "Table file, saved and read", "planes", {5, 10, 20, 50, 100}, table_file_job},
  };
}

bool wanted(const Study& study, int argc, char** argv) {
  return argc < 2 || std::any_of(argv + 1, argv + argc, [&](const char* prefix) {
           return std::string(study.name).starts_with(prefix);
         });
}

}  // namespace

int main(int argc, char** argv) {
  for (const Study& study : all_studies()) {
    if (wanted(study, argc, argv)) run(study);
  }
  return 0;
}
