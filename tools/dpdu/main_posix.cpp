#include "program.h"

int main(int count, char** arguments) { return dpdu::RunProgram({arguments, arguments + count}); }
