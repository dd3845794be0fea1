#include <string>
#include <vector>

#include "cli/run.h"

int main(int argc, char** argv) {
    return cli::Run(std::vector<std::string>(argv + 1, argv + argc));
}
