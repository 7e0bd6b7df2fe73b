#include <quillmar/c/quillmar.h>
