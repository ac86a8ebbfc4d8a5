#include "engine/qt_view.h"
#include "engine/qt_log_window.h"

#include <QGuiApplication>
#include <QThread>
#include <QTimer>

#include "engine/tools/runner.h"
#include "platform/process.h"
#include "platform/registry_store.h"

namespace pictavo::engine {
namespace {

// The runner calls its pump from any thread; Qt's events belong to the main thread only.
void PumpFromAnyThread() {
  if (QCoreApplication::instance() &&
      QThread::currentThread() == QCoreApplication::instance()->thread())
    QCoreApplication::processEvents();
}

}  // namespace

bool DisplayOpens(int argc, char** argv) {
  return platform::ProbeInChildProcess(
      [argc, argv]() mutable {
        QGuiApplication probe(argc, argv);
        return true;
      },
      5000);
}

int RunQtWindow(TfLog& form, const JobArguments& args, int argc, char** argv) {
  QApplication app(argc, argv);
  LogWindow window(form);
  form.SetView(&window);
  platform::RegistryStore store;
  (void)store.Load();
  form.FormCreate(args, store);
  if (form.left >= 0 && form.top >= 0) window.move(form.left, form.top);
  if (form.minimized)
    window.showMinimized();
  else
    window.show();
  tools::SetEventPump(PumpFromAnyThread);

  int status = 0;
  QTimer timer1;
  timer1.setInterval(100);
  QObject::connect(&timer1, &QTimer::timeout, [&] {
    timer1.stop();
    form.Timer1Timer();
    if (!form.show_log) {
      app.exit(0);
      return;
    }
    status = form.ExitStatus();
  });
  if (form.timer_enabled) timer1.start();
  // A stop signal (engine/main.cpp) closes the window once the job has ended: nobody may be
  // there to press Close.
  QTimer stop_watch;
  stop_watch.setInterval(200);
  QObject::connect(&stop_watch, &QTimer::timeout, [&] {
    if (platform::StopRequestsCaught() > 0 && !form.job_running) window.close();
  });
  stop_watch.start();
  const int loop = app.exec();
  tools::SetEventPump(nullptr);
  form.SetView(nullptr);
  return loop != 0 ? loop : status;
}

}  // namespace pictavo::engine
