#include "job.h"

namespace fileop {
namespace {

thread_local Job* current_job = nullptr;

}  // namespace

Job* CurrentJob() { return current_job; }

JobScope::JobScope(Job* job) : before_(current_job) { current_job = job; }
JobScope::~JobScope() { current_job = before_; }

}  // namespace fileop
