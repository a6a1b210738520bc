// Exported instantiations of AArray for the plain number types.
#include <merovane/foundation/AArray.h>

template class AArray<int>;
template class AArray<unsigned int>;
template class AArray<float>;
template class AArray<double>;
