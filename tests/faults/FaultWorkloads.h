// What runs under faults: each returns what was wrong, empty if nothing was.
#ifndef KPL_TESTS_FAULTS_FAULTWORKLOADS_H_
#define KPL_TESTS_FAULTS_FAULTWORKLOADS_H_

#include <string>

#include "tests/faults/FaultyCalls.h"

namespace kpl::test {

// A server with clients, under faults from the server's start on. Then, without faults, the server
// serves a fresh client or connection, stops, and nothing is left: no descriptor, no thread, no
// FIFO. Crashes, hangs and leaked memory are the caller's to notice.
std::string RunRpcWorkload(const FaultPlan& plan);
std::string RunTcpWorkload(const FaultPlan& plan);

}  // namespace kpl::test

#endif  // KPL_TESTS_FAULTS_FAULTWORKLOADS_H_
