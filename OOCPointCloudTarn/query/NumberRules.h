// The numbers of the query language. Spirit's parsers say what a number is; a real number's value
// is then the one nearest to its text, so that a constant equals the same constant written
// elsewhere.
#pragma once

#include <boost/spirit/include/qi.hpp>
#include <string>

#include "OOCPointCloudTarn/query/RealNumbers.h"

namespace tarn {

template <typename Iterator, typename Skipper>
struct NumberRules {
  template <typename T>
  using Rule = boost::spirit::qi::rule<Iterator, T(), Skipper>;

  NumberRules() {
    namespace qi = boost::spirit::qi;
    intNumber = qi::int_;
    // Read in 32 bits; the low eight are kept.
    uint8Number = qi::uint_[StoreLowByte{}];
    floatNumber = qi::raw[RealNumberParser<float>()][StoreNearest<float>{}];
    doubleNumber = qi::raw[RealNumberParser<double>()][StoreNearest<double>{}];
  }

  Rule<std::int32_t> intNumber;
  Rule<std::uint8_t> uint8Number;
  Rule<float> floatNumber;
  Rule<double> doubleNumber;

 private:
  struct StoreLowByte {
    template <typename Context>
    void operator()(unsigned number, Context& context, bool& /*pass*/) const {
      boost::fusion::at_c<0>(context.attributes) = static_cast<std::uint8_t>(number & 0xFFu);
    }
  };

  template <typename T>
  struct StoreNearest {
    template <typename Context>
    void operator()(const boost::iterator_range<Iterator>& matched, Context& context,
                    bool& /*pass*/) const {
      namespace qi = boost::spirit::qi;
      T approximate{};
      Iterator begin = matched.begin();
      qi::parse(begin, matched.end(), RealNumberParser<T>(), approximate);
      const std::string text(matched.begin(), matched.end());
      boost::fusion::at_c<0>(context.attributes) = NearestNumber(text, approximate);
    }
  };
};

}  // namespace tarn
