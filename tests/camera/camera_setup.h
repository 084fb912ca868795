// A test program with this is process 7 of a camera, whose parameter host lives as long as the program.
#pragma once

#include "tests/captured_output.h"
#include "tests/parameter_host.h"

ParameterHost& Host();
