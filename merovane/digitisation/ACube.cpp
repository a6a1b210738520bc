// Exported instantiations of ACube for the sums and counts of the power measurement.
#include <merovane/digitisation/ACube.h>

template class ACube<double>;
template class ACube<int>;
