// All exported image kernels.
#ifndef VORLITH_KERNELS_H_
#define VORLITH_KERNELS_H_

#include "vorlith/convert.h"
#include "vorlith/filter.h"
#include "vorlith/kernel_context.h"
#include "vorlith/lanes.h"
#include "vorlith/resize.h"

#endif  // VORLITH_KERNELS_H_
