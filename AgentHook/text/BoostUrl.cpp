// Boost.URL, compiled into the program from its own sources (the library
// documents this way of building it) rather than linked from a prebuilt
// archive.
//
// Why: the prebuilt library's one object includes <iostream>, which with
// libstdc++ puts a std::ios_base::Init object among the static initialisers.
// That object sets up the C++ locale and the standard streams at every start
// of the program, a third of what a whole hook event costs, although no URL
// is parsed in most events and nothing here prints. The stream header is not
// used by the sources we compile; its include guard is set first so that it
// is skipped. Building from source is also how the cross builds get the
// library for their targets.
#define _GLIBCXX_IOSTREAM 1
#define _LIBCPP_IOSTREAM 1
// As the library is built for release: some of its internal assertions fail
// on inputs it still parses to an answer (an invalid byte after a scheme,
// found by fuzzing), and a debug build of ours must not abort on them.
#define BOOST_DISABLE_ASSERTS 1

#include <boost/url/src.hpp>
