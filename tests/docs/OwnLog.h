#ifndef KPL_TESTS_DOCS_OWNLOG_H_
#define KPL_TESTS_DOCS_OWNLOG_H_

#include "kpl/os/CEvent.h"

// From now on messages that contain `text` are printed on stdout, and each sets `event`, if it is
// not null. All others are dropped. Before other threads log.
void PrintMessagesWith(const char* text, kpl::os::CEvent* event);

#endif  // KPL_TESTS_DOCS_OWNLOG_H_
