#include "host/core/progress.h"

#include <utility>

#include "host/core/errors.h"

namespace host {
namespace {

Progress silent;
Progress* told = &silent;

}  // namespace

void Progress::Report(double) {}

void Progress::At(double done) {
  if (Asked()) throw Cancelled();
  Report(done);
}

Progress& TheProgress() { return *told; }

ProgressScope::ProgressScope(Progress& progress) : outer_(std::exchange(told, &progress)) {}

ProgressScope::~ProgressScope() { told = outer_; }

}  // namespace host
