#include <gtest/gtest.h>
#include <kit/kit.h>
