#include "C/PlatformHandle.h"

struct quillmar_work : quillmar::Pending<std::function<void()>> {};

namespace quillmar {

namespace {

class TableExecutor final : public platform::Executor {
 public:
  void post(std::function<void()> work) override {
    table->call<&quillmar_executor::post>(handed<quillmar_work>(std::move(work)));
  }

  std::shared_ptr<const Table<quillmar_executor>> table;
};

}  // namespace

}  // namespace quillmar

using namespace quillmar;

void quillmar_work_run(quillmar_work* work) {
  if (const auto callback = quillmar_work::taken(work)) {
    callback();
  }
}
void quillmar_work_drop(quillmar_work* work) {
  quillmar_work::taken(work);
}

quillmar_status quillmar_platform_set_executor(quillmar_platform* platform, const quillmar_executor* executor) {
  return setMember<TableExecutor>(platform, &platform::Platform::executor, executor, &quillmar_executor::post);
}
quillmar_status quillmar_platform_set_main_executor(quillmar_platform* platform, const quillmar_executor* executor) {
  return setMember<TableExecutor>(platform, &platform::Platform::mainExecutor, executor, &quillmar_executor::post);
}
