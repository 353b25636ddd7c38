#include "quality/figure.h"

double spread(double least, double most) { return most - least; }
