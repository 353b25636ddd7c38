// What the second library adds.
#pragma once

double spread(double least, double most);
