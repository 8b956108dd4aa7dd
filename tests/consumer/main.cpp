// A user's program: it builds against the library as it is installed, with and without exceptions
// and RTTI, and exits with 0 when everything that it uses answers.
#include <stdio.h>
#include <string.h>

#include "kpl/Version.h"
#include "kpl/os/CCritSec.h"
#include "kpl/os/CEvent.h"
#include "kpl/os/CThread.h"
#include "kpl/os/Sleep.h"
#include "kpl/tools/CommandProcessor.h"
#include "kpl/tools/DebugLog.h"
#include "kpl/tools/TimerObject.h"

namespace {

class Adder : public kpl::tools::CommandProcessor<int> {
public:
    bool Execute(int command) override {
        m_sum += command;
        return true;
    }

    void OnCommandDone(int command) override {
        if (command == 3) {
            m_done.Set();
        }
    }

    int WaitForSum() { return m_done.Wait(10000) ? m_sum : -1; }

private:
    int m_sum = 0;
    kpl::os::CEvent m_done{false};
};

void SetEvent(void* event) {
    static_cast<kpl::os::CEvent*>(event)->Set();
}

void SetEventAtTick(void* event, int) {
    SetEvent(event);
}

bool ThreadRuns() {
    kpl::os::CEvent ran(false);
    kpl::os::CThread thread(&SetEvent, &ran);
    return thread.Run(0) && ran.Wait(10000);
}

bool TimerTicks() {
    kpl::os::CEvent ticked(false);
    kpl::tools::TimerObject timer;
    return timer.Start(1, &SetEventAtTick, &ticked, 1, false, 0) && ticked.Wait(10000);
}

bool QueueExecutes() {
    Adder adder;
    kpl::tools::CommandQueue<int> queue(&adder);
    for (int i = 1; i <= 3; ++i) {
        queue.Post(i);
    }
    return adder.WaitForSum() == 6;
}

}  // namespace

int main() {
    kpl::os::CCritSec section;
    kpl::os::CAutoLock lock(&section);
    kpl::os::osal_Sleep(0);  // allow-sleep: only to link it
    kpl::tools::ForceDumpDbgMsg("consumer of %s\n", KPL_VERSION);
    const bool fine = ThreadRuns() && TimerTicks() && QueueExecutes();
    printf("%s\n", fine ? "consumer: everything answers" : "consumer: FAILED");
    return fine ? 0 : 1;
}
