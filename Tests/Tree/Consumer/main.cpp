#include "Host/Module.h"

#include <iostream>

int main(int, char** arguments) {
    std::cout << Tessaloom::BilateralBlur::Host::Module(arguments[1]).resource().name << "\n";
}
