#include "NubraApp/Shell/NubraApplication.h"

int main(int argc, char** argv) {
    return NubraApplication::run(argc, argv);
}
