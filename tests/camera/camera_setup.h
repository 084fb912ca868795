// A test program with this is process 7 of a camera, whose parameter host lives as long as the program.
#pragma once

#include "tests/answering_host.h"
#include "tests/captured_output.h"

AnsweringHost& Host();
