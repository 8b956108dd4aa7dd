// kpl-rpc: calls, measures, lists, records and cleans up servers of the library.
#include "cli/LibraryLog.h"
#include "cli/Run.h"

int main(int argc, char** argv) {
    return kpl::cli::Run({argv + (argc > 0 ? 1 : 0), argv + argc}, kpl::cli::ShowLibraryLog);
}
