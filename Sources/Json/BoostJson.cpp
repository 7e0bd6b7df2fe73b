// Boost.JSON's own code, compiled once for the whole library.
#include <boost/json/src.hpp>
