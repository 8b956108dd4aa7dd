// Runs one recipe of docs/guide.md, with its FIFOs and files in a directory:
//
//   guide_recipes RECIPE DIRECTORY
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "Recipes.h"
#include "kpl/ipc/PipePath.h"

namespace {

struct Recipe {
    const char* name;
    void (*run)();
};

constexpr Recipe kRecipes[] = {
    {"serve", &Serve},
    {"call", &CallFunctions},
    {"call-back", &CallBack},
    {"time-out", &TimeOut},
    {"stop", &Stop},
    {"crash", &SurviveACrash},
    {"lines", &ReadLines},
    {"json", &ReadAndWriteJson},
    {"log-files", &LogToFiles},
    {"own-log", &TakeTheLog},
    {"timer", &UseATimer},
    {"queue", &UseAQueue},
    {"hang", &FindWhatHangs},
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || chdir(argv[2]) != 0) {
        fputs("usage: guide_recipes RECIPE DIRECTORY\n", stderr);
        return 2;
    }
    kpl::ipc::SetPipeRootPath(argv[2]);
    for (const Recipe& recipe : kRecipes) {
        if (strcmp(recipe.name, argv[1]) == 0) {
            recipe.run();
            return 0;
        }
    }
    fprintf(stderr, "guide_recipes: there is no recipe '%s'\n", argv[1]);
    return 2;
}
