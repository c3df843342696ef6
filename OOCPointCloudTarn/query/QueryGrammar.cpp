// The grammar. Everything is prefix notation, so nesting alone decides the structure. Actions run
// while the parse proceeds, operands in the order of the text, an operator after each operand from
// the second on; a clause's action runs once the clause is complete.
#include "OOCPointCloudTarn/query/QueryGrammar.h"

#include <boost/bind/bind.hpp>
#include <boost/fusion/include/adapt_struct.hpp>
#include <boost/spirit/include/qi.hpp>

#include "OOCPointCloudTarn/query/ExpressionAccumulator.h"
#include "OOCPointCloudTarn/query/NestingLimit.h"
#include "OOCPointCloudTarn/query/NumberRules.h"

// Fusion adapts what a clause holds to what its rule's parts give, in the same order.
BOOST_FUSION_ADAPT_TPL_STRUCT((T), (ComparisonClause)(T), name, code, value)
BOOST_FUSION_ADAPT_TPL_STRUCT((T), (RangeClause)(T), name, code, first, second)

namespace tarn {
namespace {

namespace qi = boost::spirit::qi;
using Accumulator = TarOOCExpressionAccumulator;
using Iterator = std::string::const_iterator;
using Skipper = qi::ascii::space_type;
using Rule = qi::rule<Iterator, Skipper>;
template <typename Attribute>
using AttributeRule = qi::rule<Iterator, Attribute(), Skipper>;

class QueryGrammar : public qi::grammar<Iterator, Skipper> {
 public:
  explicit QueryGrammar(Accumulator& accumulator)
      : QueryGrammar::base_type(query), accumulator_(&accumulator) {
    DefineTokens();
    DefineCalls();
    DefineGeometry();
    DefineMeshes();
    DefineMetaData();
  }

 private:
  /// The action that calls a member function without an argument.
  [[nodiscard]] auto Call(void (Accumulator::*action)()) const {
    return boost::bind(action, accumulator_);
  }
  /// The action that calls a member function with what was matched.
  template <typename Argument>
  [[nodiscard]] auto CallWith(void (Accumulator::*action)(const Argument&)) const {
    return boost::bind(action, accumulator_, boost::placeholders::_1);
  }

  void DefineTokens() {
    open = qi::lit('(');
    close = qi::lit(')');
    comma = qi::lit(',');
    equals = qi::lit('=');
    braceOpen = qi::lit('{');
    braceClose = qi::lit('}');
    quotedText = qi::lexeme['"' >> +(qi::char_ - '"') >> '"'];
    // The comma belongs to the token: ">" fails at once on the "=" of ">=".
    comparisonOperator =
        (qi::lit("==") >> comma >> qi::attr(0)) | (qi::lit(">") >> comma >> qi::attr(1)) |
        (qi::lit(">=") >> comma >> qi::attr(2)) | (qi::lit("<") >> comma >> qi::attr(3)) |
        (qi::lit("<=") >> comma >> qi::attr(4)) | (qi::lit("!=") >> comma >> qi::attr(5));
    rangeOperator =
        (qi::lit("<>") >> comma >> qi::attr(0)) | (qi::lit("<=>") >> comma >> qi::attr(1));
  }

  void DefineCalls() {
    query = operand | andCall | orCall | xorCall;
    // A call of "#and", "#or" or "#xor" is no operand unless it stands in parentheses.
    operand = primitive | (open >> query >> close) | notCall;
    DefineCall(andCall, "#and", &Accumulator::PushAnd);
    DefineCall(orCall, "#or", &Accumulator::PushOr);
    DefineCall(xorCall, "#xor", &Accumulator::PushXor);
    notCall = (qi::lit("#not") >> open >> operand >> close)[Call(&Accumulator::PushNot)];
  }

  void DefineCall(Rule& rule, const char* keyword, void (Accumulator::*action)()) {
    rule = qi::lit(keyword) >> open >> operand >> +(comma >> operand)[Call(action)] >> close;
  }

  void DefineGeometry() {
    DefineNumbers(fourNumbers, 4);
    DefineNumbers(sixNumbers, 6);
    DefineNumbers(planes, 24);
    primitive = within | distance | metaData |
                (qi::lit("#true") >> open >> close)[Call(&Accumulator::PushAllPoints)] |
                (qi::lit("#false") >> open >> close)[Call(&Accumulator::PushNoPoints)];
    distance = qi::lit("#distance") >> fourNumbers[CallWith(&Accumulator::PushSphere)];
    within = qi::lit("#within") >> braceOpen >> qi::lit("type") >> equals >> (shape | mesh);
    shape = (qi::lit("sphere") >> braceClose >> fourNumbers[CallWith(&Accumulator::PushSphere)]) |
            (qi::lit("box") >> braceClose >> sixNumbers[CallWith(&Accumulator::PushBox)]) |
            (qi::lit("oobb") >> braceClose >> sixNumbers[CallWith(&Accumulator::PushBox)]) |
            (qi::lit("2dbox") >> braceClose >> fourNumbers[CallWith(&Accumulator::Push2DBox)]) |
            (qi::lit("frustum") >> braceClose >> planes[CallWith(&Accumulator::PushFrustum)]);
  }

  void DefineNumbers(AttributeRule<std::vector<double>>& rule, int count) {
    rule = open >> numbers.doubleNumber >> qi::repeat(count - 1)[comma >> numbers.doubleNumber] >>
           close;
  }

  // What the mesh clauses say is checked and dropped.
  void DefineMeshes() {
    keepFlag = (comma >> qi::lit("keepUndeterminedBlocks") >> qi::attr(1)) |
               (comma >> qi::lit("doNotKeepUndeterminedBlocks") >> qi::attr(0)) | qi::attr(0);
    mesh = (((qi::lit("closedMesh") | qi::lit("orientedMeshPartitioning")) >> braceClose >> open >>
             qi::omit[quotedText]) |
            (qi::lit("extrudedAbove") >> braceClose >> open >> qi::omit[quotedText] >>
             qi::omit[keepFlag])) >>
           close[Call(&Accumulator::PushMeshPlaceholder)];
  }

  void DefineMetaData() {
    DefineForms(intComparison, intRange, numbers.intNumber);
    DefineForms(uint8Comparison, uint8Range, numbers.uint8Number);
    DefineForms(floatComparison, floatRange, numbers.floatNumber);
    DefineForms(doubleComparison, doubleRange, numbers.doubleNumber);
    stringComparison = open >> quotedText >> comma >> comparisonOperator >> quotedText >> close;
    // "int64" reads the numbers of "int" and makes the queries of "int".
    metaData = qi::lit("#num") >> braceOpen >> qi::lit("type") >> equals >>
               ((((qi::lit("int") >> braceClose) | (qi::lit("int64") >> braceClose)) >>
                 (intComparison[CallWith(&Accumulator::PushIntComparison)] |
                  intRange[CallWith(&Accumulator::PushIntRange)])) |
                (qi::lit("float") >> braceClose >>
                 (floatComparison[CallWith(&Accumulator::PushFloatComparison)] |
                  floatRange[CallWith(&Accumulator::PushFloatRange)])) |
                (qi::lit("double") >> braceClose >>
                 (doubleComparison[CallWith(&Accumulator::PushDoubleComparison)] |
                  doubleRange[CallWith(&Accumulator::PushDoubleRange)])) |
                (qi::lit("uint8_t") >> braceClose >>
                 (uint8Comparison[CallWith(&Accumulator::PushUInt8Comparison)] |
                  uint8Range[CallWith(&Accumulator::PushUInt8Range)])) |
                (qi::lit("string") >> braceClose >>
                 stringComparison[CallWith(&Accumulator::PushStringComparison)]));
  }

  template <typename T>
  void DefineForms(AttributeRule<ComparisonClause<T>>& comparison,
                   AttributeRule<RangeClause<T>>& range, const AttributeRule<T>& number) {
    comparison = open >> quotedText >> comma >> comparisonOperator >> number >> close;
    range = open >> quotedText >> comma >> rangeOperator >> number >> comma >> number >> close;
  }

  Rule query, operand, andCall, orCall, xorCall, notCall, primitive;
  Rule within, distance, shape, mesh, metaData;
  Rule open, close, comma, equals, braceOpen, braceClose;
  AttributeRule<std::string> quotedText;
  AttributeRule<int> comparisonOperator, rangeOperator, keepFlag;
  AttributeRule<std::vector<double>> fourNumbers, sixNumbers, planes;
  AttributeRule<ComparisonClause<std::int32_t>> intComparison;
  AttributeRule<RangeClause<std::int32_t>> intRange;
  AttributeRule<ComparisonClause<std::uint8_t>> uint8Comparison;
  AttributeRule<RangeClause<std::uint8_t>> uint8Range;
  AttributeRule<ComparisonClause<float>> floatComparison;
  AttributeRule<RangeClause<float>> floatRange;
  AttributeRule<ComparisonClause<double>> doubleComparison;
  AttributeRule<RangeClause<double>> doubleRange;
  AttributeRule<ComparisonClause<std::string>> stringComparison;
  NumberRules<Iterator, Skipper> numbers;
  Accumulator* accumulator_;
};

}  // namespace

bool ParseQuery(const std::string& text, Accumulator& accumulator,
                std::string::const_iterator& position) {
  const QueryGrammar grammar(accumulator);
  const auto end = FindTooDeepNesting(text, kDeepestNesting);
  position = text.begin();
  if (qi::phrase_parse(position, end, grammar, qi::ascii::space)) return true;
  position = text.begin();
  return false;
}

}  // namespace tarn
