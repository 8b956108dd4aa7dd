#ifndef KPL_TESTS_FAULTS_PHASE_H_
#define KPL_TESTS_FAULTS_PHASE_H_

namespace kpl::test {

// What the processes of a case are doing. Setup is whatever lies between the others.
enum class Phase { Setup, Start, Connect, Call, Callback, Disconnect, Stop };

constexpr int kPhases = 7;
constexpr const char* kPhaseNames[kPhases] = {"setup",    "start",      "connect", "call",
                                              "callback", "disconnect", "stop"};

}  // namespace kpl::test

#endif  // KPL_TESTS_FAULTS_PHASE_H_
