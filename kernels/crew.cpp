#include "kernels/crew.h"

#include <algorithm>
#include <exception>

#include "kernels/processor.h"

namespace korin::kernels {

Crew::Crew(int threads) : mostHelpers_(std::min(threads, availableProcessors()) - 1) {}

Crew::~Crew() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    finished_ = true;
  }
  changed_.notify_all();
  for (std::thread& helper : helpers_) helper.join();
}

void Crew::handOff(Task& task, bool worthThread) {
  const std::lock_guard<std::mutex> lock(mutex_);
  task.before_ = last_;
  (last_ != nullptr ? last_->after_ : first_) = &task;
  last_ = &task;
  if (idle_ > 0) {
    changed_.notify_all();
  } else if (worthThread && static_cast<int>(helpers_.size()) < mostHelpers_) {
    startHelper();
  }
}

void Crew::join(Task& task) {
  std::unique_lock<std::mutex> lock(mutex_);
  while (task.state_ != Task::State::Done) {
    if (Task* const next = nextFor(task)) {
      run(*next, lock);
    } else {
      wait(lock);
    }
  }
}

// A task of higher rank than the joined one would nest without end. None is lost by that: whoever
// handed it off joins it.
Task* Crew::nextFor(Task& joined) const {
  if (joined.state_ == Task::State::Waiting) return &joined;
  for (Task* const task : {first_, last_}) {
    if (task != nullptr && task->rank_ <= joined.rank_) return task;
  }
  return nullptr;
}

void Crew::startHelper() {
  try {
    helpers_.emplace_back([this] { help(); });
  } catch (const std::exception&) {
    mostHelpers_ = 0;
  }
}

void Crew::help() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (!finished_) {
    if (first_ != nullptr) {
      run(*first_, lock);
    } else {
      wait(lock);
    }
  }
}

void Crew::run(Task& task, std::unique_lock<std::mutex>& lock) {
  (task.before_ != nullptr ? task.before_->after_ : first_) = task.after_;
  (task.after_ != nullptr ? task.after_->before_ : last_) = task.before_;
  task.state_ = Task::State::Running;
  lock.unlock();
  task.run_(task, *this);
  lock.lock();
  task.state_ = Task::State::Done;
  changed_.notify_all();
}

void Crew::wait(std::unique_lock<std::mutex>& lock) {
  ++idle_;
  changed_.wait(lock);
  --idle_;
}

}  // namespace korin::kernels
