// Exported instantiation of AMatrix.
#include <merovane/foundation/AMatrix.h>

template class AMatrix<double>;
