#ifndef VEMKN_FIT_TESTS_RANDOM_NAMES_H
#define VEMKN_FIT_TESTS_RANDOM_NAMES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "../../common/random.h"

/** Seeded column names of any bytes, with much in them that means something to a shell, to gnuplot, to
 * a terminal, or in a CSV or key=value file. */
class RandomNames {
public:
    /// @param[in] trace  the file that a name makes if it is run
    RandomNames(std::uint64_t seed, const std::string& trace)
        : random_(seed),
          pieces_{"\n",
                  "\r\n",
                  "\n\nsystem(\"touch " + trace + "\")\n",
                  "\n!touch " + trace + "\n",
                  "`touch " + trace + "`",
                  "$(touch " + trace + ")",
                  "@TARGETS@",
                  "@X",
                  "\nset output '" + trace + "'\n",
                  "\nset print '" + trace + "'\nprint 1\n",
                  "'",
                  "''",
                  "\"",
                  "\"\"",
                  "\\",
                  "\\\n",
                  "\\\"",
                  "\\042",
                  "\\'",
                  "#",
                  "%s%n",
                  "{/Bold",
                  "}",
                  "^",
                  "_",
                  "=",
                  "objective=0\n",
                  ",",
                  ";",
                  "|",
                  " ",
                  "\t",
                  "\x1b]0;title\x07",
                  "\x1b[2J",
                  "\xC2\x9B",
                  "\xE2\x80\xA8",
                  "\xE2\x80\xAE",
                  "\xEF\xBB\xBF",
                  "\xED\xA0\x80",
                  "\xC0\xAF",
                  "\xF0\x9F",
                  "\xC3\x96l",
                  "\xF0\x9F\x98\x80",
                  "price",
                  std::string(1, '\0')}
    {
    }

    std::string next()
    {
        std::string name;
        const std::size_t parts = 1 + below(6);
        for (std::size_t i = 0; i < parts; ++i)
            name += below(2) == 0 ? pieces_[below(pieces_.size())]
                                  : std::string(1, static_cast<char>(below(256)));
        return name;
    }

private:
    std::size_t below(std::size_t count)
    {
        return static_cast<std::size_t>(random_.uniform() * static_cast<double>(count));
    }

    examples::Random random_;
    std::vector<std::string> pieces_;
};

#endif
