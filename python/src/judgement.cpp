// Findings and verdict.
#include <string>
#include <utility>

#include "kestrane/quality/findings.h"
#include "python/src/module.h"
#include "python/src/safe_factory.h"
#include "python/src/safe_field.h"

namespace kestrane::python {
namespace {

using quality::Finding;
using quality::Judgement;
using quality::Level;
using quality::Limits;

Limits limits_of(const py::handle& source) {
  Limits limits;
  const std::pair<const char*, std::optional<double>*> all[] = {
      {"rms", &limits.rms},
      {"p99", &limits.p99},
      {"coverage", &limits.coverage},
      {"seam", &limits.seam},
      {"repeatability", &limits.repeatability},
      {"outliers", &limits.outliers},
      {"field_motion", &limits.field_motion}};
  for (const auto& [name, limit] : all) {
    const py::object value = source.attr(name);
    if (!value.is_none()) *limit = value.cast<double>();
  }
  return limits;
}

// (level, id, text, figures) of each, and the verdict.
py::tuple pack_judgement(const Judgement& judgement) {
  py::list findings;
  for (const Finding& finding : judgement.findings) {
    py::dict figures;
    for (const quality::Figure& figure : finding.figures) {
      figures[py::str(figure.name)] = figure.value;
    }
    findings.append(
        py::make_tuple(quality::name_of(finding.level), finding.id, finding.text, figures));
  }
  return py::make_tuple(findings, judgement.verdict);
}

Level level_of(const std::string& name) {
  for (const Level level : {Level::kOk, Level::kWarn, Level::kBad}) {
    if (name == quality::name_of(level)) return level;
  }
  throw py::value_error("a level is ok, warn or bad, not " + name);
}

py::tuple conclude(const py::iterable& findings, const py::handle& limits) {
  std::vector<Finding> given;
  for (const py::handle source : findings) {
    Finding finding;
    finding.level = level_of(source.attr("level").cast<std::string>());
    finding.id = source.attr("id").cast<std::string>();
    finding.text = source.attr("text").cast<std::string>();
    for (const auto& [name, value] : source.attr("figures").cast<py::dict>()) {
      finding.figures.push_back({name.cast<std::string>(), value.cast<double>()});
    }
    given.push_back(std::move(finding));
  }
  return pack_judgement(quality::conclude(std::move(given), limits_of(limits)));
}

}  // namespace

void add_judgement(py::module_& module) {
  module.def("judge_factory", [](const py::handle& result, const py::handle& limits) {
    return pack_judgement(quality::judge(factory_result_of(result), limits_of(limits)));
  });
  module.def("judge_field", [](const py::handle& result, const py::handle& limits) {
    return pack_judgement(quality::judge(field_result_of(result), limits_of(limits)));
  });
  module.def("judge_difference", [](const py::handle& difference, const py::handle& limits) {
    return pack_judgement(quality::judge(difference_of(difference), limits_of(limits)));
  });
  module.def("conclude", &conclude, py::arg("findings"), py::arg("limits"));
}

}  // namespace kestrane::python
