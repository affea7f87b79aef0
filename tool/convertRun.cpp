/* convertRun.cpp: the command that writes a run anew in another storage form. See convertRun --help. */

#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "tool/options.h"
#include "tool/runConverter.h"

using namespace tool;

namespace {

struct Wanted {
    std::string log, dir, dataDir = "QUENTA.DIR";
    Form        form = Form::ascii;
};

void help()
{
    std::printf("usage: convertRun LOG DIR --form FORM [--data-dir NAME]\n\n"
                "Copies the run of the log file LOG, <problem>.<run>.Log, into the folder DIR, its data files in the\n"
                "storage form FORM. The run must be in the binary form.\n\n"
                "  --form FORM      one of");
    for (const FormRow &row : formRows) std::printf(" %s", row.word);
    std::printf("\n  --data-dir NAME  folder of the data files, beside the log [QUENTA.DIR]\n"
                "  --help           this text\n");
}

/* false: only help was wanted */
bool parse(int argc, char **argv, Wanted *wanted)
{
    std::vector<std::string> names;
    bool hasForm = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help" || word == "-h") return false;
        if (word.empty() || word[0] != '-') {
            names.push_back(word);
            continue;
        }
        if (word != "--form" && word != "--data-dir") refuse("unknown option <" + word + ">");
        if (i + 1 >= argc) refuse(word + " needs a value");
        const std::string value = argv[++i];
        if (word == "--data-dir") wanted->dataDir = value;
        else {
            wanted->form = choice("--form", value, formRows);
            hasForm      = true;
        }
    }
    if (names.size() != 2) refuse("a log and a folder are needed");
    if (!hasForm) refuse("no form given");
    wanted->log = names[0];
    wanted->dir = names[1];
    return true;
}

}

int main(int argc, char **argv)
{
    try {
        Wanted wanted;
        if (!parse(argc, argv, &wanted)) {
            help();
            return 0;
        }
        const int n = convertRun(wanted.log, wanted.dir, wanted.form, wanted.dataDir);
        std::printf("%s: %d data files\n", wanted.dir.c_str(), n);
        return 0;
    }
    catch (const std::invalid_argument &e) {
        std::fprintf(stderr, "convertRun: %s\nconvertRun --help tells more\n", e.what());
        return 2;
    }
    catch (const std::exception &e) {
        std::fprintf(stderr, "convertRun: %s\n", e.what());
        return 1;
    }
}
