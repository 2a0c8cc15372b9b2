#include <vx/VxAccessCoordinate3Interface.h>

KX_INTERFACE_SOURCE(VxAccessCoordinate3Interface, KxInterface)
