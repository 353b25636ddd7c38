// One quiet way to run the nonlinear solver.
//
// in    a problem and what is special about its solve
// out   the solver's summary; the problem's parameters hold the solution
#pragma once

#include "ceres/problem.h"
#include "ceres/solver.h"

namespace kestrane {

// Solves `problem` on the calling thread, writes nothing and keeps the solver's log quiet.
//
// options  the number of threads, the logging type and the progress report are set here; all else
//          is the caller's
//
// One thread: the result then has the same bits in every run and on any number of cores, nothing is
// allocated where no caller could catch a failure, and problems of this size gain nothing from a
// second thread.
ceres::Solver::Summary solve_quietly(ceres::Solver::Options options, ceres::Problem& problem);

// Options of a problem that only refers to its cost and loss functions: their owner outlives it. A
// failed allocation then cannot lose one of them, and a loss has an owner without any block too.
ceres::Problem::Options borrowed_parts();

}  // namespace kestrane
