#pragma once

#include <kit/store/head_table.h>
