// Boost.URL's own code, compiled once for the whole library.
#include <boost/url/src.hpp>
