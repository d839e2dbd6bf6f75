#include "Source/KorTemplateBinaryExpression.h"

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/CycleWatch.h"
#include "Foundation/Description.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSException.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSString.h"
#include "Foundation/WorkMeter.h"
#include "Matchery/KorRegex.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/Operand.h"

namespace tavlo {

namespace {

constexpr std::array<const char*, 15> kOperatorNames = {
    "KorTemplateOperatorAssignment",
    "KorTemplateOperatorEquals",
    "KorTemplateOperatorNotEquals",
    "KorTemplateOperatorMatches",
    "KorTemplateOperatorLessThan",
    "KorTemplateOperatorGreaterThan",
    "KorTemplateOperatorLessThanOrEqualTo",
    "KorTemplateOperatorGreaterThanOrEqualTo",
    "KorTemplateOperatorAdd",
    "KorTemplateOperatorSubtract",
    "KorTemplateOperatorMultiply",
    "KorTemplateOperatorDivide",
    "KorTemplateOperatorModulo",
    "KorTemplateOperatorAnd",
    "KorTemplateOperatorOr",
};

const char* nameOf(KorTemplateOperator op) {
  return op >= 0 && static_cast<std::size_t>(op) < kOperatorNames.size() ? kOperatorNames[static_cast<std::size_t>(op)]
                                                                         : "Unknown";
}

[[noreturn]] void raiseDivideByZero() {
  NSException::raise(NSGenericException, "Divide by zero");
}

// For a chain that a host has linked to itself.
[[noreturn]] void raiseEndlessChain() {
  NSException::raise(NSInvalidArgumentException, "The left operands of an operator lead back to it");
}

RawValue remainderOf(RawValue left, RawValue right) {
  const auto dividend = numberAsInteger<std::int32_t>(left);
  const auto divisor = numberAsInteger<std::int32_t>(right);
  if (divisor == 0) raiseDivideByZero();
  // Wider than the operands, so that the smallest integer has a remainder by -1 too.
  return RawValue::integer(std::int64_t{dividend} % divisor);
}

// An operator on two doubles; absent for one that is none of arithmetic or order, and for the remainder.
inline RawValue applyToDoubles(KorTemplateOperator op, double left, double right) {
  switch (op) {
    case KorTemplateOperatorEquals:
      return RawValue::boolean(left == right);
    case KorTemplateOperatorNotEquals:
      return RawValue::boolean(left != right);
    case KorTemplateOperatorLessThan:
      return RawValue::boolean(left < right);
    case KorTemplateOperatorGreaterThan:
      return RawValue::boolean(left > right);
    case KorTemplateOperatorLessThanOrEqualTo:
      return RawValue::boolean(left <= right);
    case KorTemplateOperatorGreaterThanOrEqualTo:
      return RawValue::boolean(left >= right);
    case KorTemplateOperatorAdd:
      return RawValue::real(left + right);
    case KorTemplateOperatorSubtract:
      return RawValue::real(left - right);
    case KorTemplateOperatorMultiply:
      return RawValue::real(left * right);
    case KorTemplateOperatorDivide:
      if (right == 0) raiseDivideByZero();
      return RawValue::real(left / right);
    default:
      return RawValue::absent();
  }
}

// Whether that has an answer for the operator, or raises.
inline bool isForDoubles(KorTemplateOperator op) noexcept {
  return applyToDoubles(op, 1, 1).kind() != ValueKind::Absent;
}

// The same for two numbers that are doubles or integers of 32 bits; absent for all others too.
inline RawValue applyToRealNumbers(KorTemplateOperator op, RawValue left, RawValue right) {
  double leftReal = 0;
  double rightReal = 0;
  const bool areReal = findDouble(left, leftReal) && findDouble(right, rightReal);
  return areReal ? applyToDoubles(op, leftReal, rightReal) : RawValue::absent();
}

RawValue applyToAnyNumbers(KorTemplateOperator op, RawValue left, RawValue right);

// The same for two numbers of any kind: arithmetic works on doubles, comparisons are exact.
inline RawValue applyToNumbers(KorTemplateOperator op, RawValue left, RawValue right) {
  if (op == KorTemplateOperatorModulo) return remainderOf(left, right);
  double leftReal = 0;
  double rightReal = 0;
  if (findDouble(left, leftReal) && findDouble(right, rightReal)) return applyToDoubles(op, leftReal, rightReal);
  return applyToAnyNumbers(op, left, right);
}

RawValue applyToAnyNumbers(KorTemplateOperator op, RawValue left, RawValue right) {
  const bool isComparison = op >= KorTemplateOperatorEquals && op <= KorTemplateOperatorGreaterThanOrEqualTo;
  if (!isComparison) return applyToDoubles(op, numberAsDouble(left), numberAsDouble(right));
  // Doubles that stand in the same order as the numbers do.
  switch (compareNumbers(left, right)) {
    case NumberOrder::Less:
      return applyToDoubles(op, 0, 1);
    case NumberOrder::Equal:
      return applyToDoubles(op, 0, 0);
    case NumberOrder::Greater:
      return applyToDoubles(op, 1, 0);
    case NumberOrder::Unordered:
      break;
  }
  return applyToDoubles(op, numberAsDouble(left), numberAsDouble(right));
}

const NSString* stringIn(RawValue value) noexcept {
  const bool isString = value.kind() == ValueKind::Object && value.payload.object->kind() == ObjectKind::String;
  return isString ? static_cast<const NSString*>(value.payload.object) : nullptr;
}

// Whether the value has a text without running anybody's code.
bool isTextual(RawValue value) noexcept {
  return value.isNumber() || stringIn(value) != nullptr;
}

// The text of a string or a number for as long as this stands, and the string does.
class Textual {
 public:
  explicit Textual(RawValue value) {
    if (const NSString* string = stringIn(value)) {
      counted_ = {string->view(), string->length()};
    } else {
      const auto size = static_cast<std::size_t>(writeNumber(number_, value) - number_);
      counted_ = {{number_, size}, size};
    }
  }
  Textual(const Textual&) = delete;
  Textual& operator=(const Textual&) = delete;

  CountedText counted() const noexcept { return counted_; }

 private:
  char number_[kNumberTextSize];
  CountedText counted_;
};

// The texts of strings and numbers joined; in place where `left` is a string that nobody else holds.
RawValue joinTextual(Value left, RawValue right, std::uint64_t limit) {
  const Textual leftText(left.peek());
  const Textual rightText(right);
  const std::size_t size = leftText.counted().text.size() + rightText.counted().text.size();
  if (size > limit) raiseLimit(KorTemplateLimit::StringLength, limit);
  countWorkOnText(size);
  const RawValue raw = left.leak();
  const NSString* string = stringIn(raw);
  if (string == nullptr || !raw.isOwned() || !string->isUniquelyReferenced()) {
    const Value held = Value::adopt(raw);
    return Value(NSString::stringByJoining(leftText.counted(), rightText.counted())).leak();
  }
  Ref<NSString> own = Ref<NSString>::adopt(const_cast<NSString*>(string));  // NOLINT(*-const-cast): its only holder
  return Value(NSString::appended(std::move(own), rightText.counted())).leak();
}

// What stands for the value in a text: itself, or its description.
Value textualOf(const Value& value, std::uint64_t limit) {
  return isTextual(value.peek()) ? value : Value(NSString::stringWithValidUTF8(Description::of(value, limit)));
}

// The two values' texts joined, the left one's first.
Value concatenation(Value left, const Value& right, std::uint64_t limit) {
  left = textualOf(left, limit);
  const Value rightText = textualOf(right, limit);
  return Value::adopt(joinTextual(std::move(left), rightText.peek(), limit));
}

const NSDate* dateIn(const Value& value) {
  const NSObject* object = value.object();
  return object != nullptr && object->kind() == ObjectKind::Date ? static_cast<const NSDate*>(object) : nullptr;
}

Value matches(const Value& left, const Value& right, std::uint64_t retries) {
  if (left.isNull()) return KorNO;
  const NSString* subject = left.string();
  if (subject == nullptr) {
    NSException::raise(NSGenericException, "Left side of match operator is %@. String expected", left);
  }
  if (right.isNull()) return KorNO;
  const KorRegex* regex = regexIn(right);
  if (regex == nullptr) {
    // The left value is what this message has always shown.
    NSException::raise(NSGenericException, "Right side of match operator is %@. Regular expression expected", left);
  }
  return regex->matchesString(*subject, retries);
}

// What a variable keeps: strings without the room that appending left behind.
Value forStorage(Value value) {
  const NSString* string = value.string();
  if (string == nullptr || !string->isUniquelyReferenced()) return value;
  constexpr std::size_t kLongCopy = std::size_t{1} << 20;
  if (string->byteLength() >= kLongCopy) lookBeforeHost();  // making it has taken as long
  (void)value.leak();
  return NSString::trimmed(
      Ref<NSString>::adopt(const_cast<NSString*>(string)));  // NOLINT(*-const-cast): its only holder
}

}  // namespace

KorTemplateBinaryExpression::KorTemplateBinaryExpression(KorTemplateOperator op)
    : KorTemplateBinaryExpression(op, KorTemplateLiteralExpression::expressionWithLiteral(NSNull::null()),
                                  KorTemplateLiteralExpression::expressionWithLiteral(NSNull::null())) {}

KorTemplateBinaryExpression::KorTemplateBinaryExpression(KorTemplateOperator op, Ref<KorTemplateExpression> leftOperand,
                                                         Ref<KorTemplateExpression> rightOperand)
    : KorTemplateExpression(kBinaryKind),
      op_(op),
      leftOperand_(std::move(leftOperand)),
      rightOperand_(std::move(rightOperand)) {
  requireParameter(leftOperand_ != nullptr && rightOperand_ != nullptr, "value != nil");
}

void KorTemplateBinaryExpression::setLeftOperand(const Ref<KorTemplateExpression>& value) {
  requireParameter(value != nullptr, "value != nil");
  leftOperand_ = value;
}

void KorTemplateBinaryExpression::setRightOperand(const Ref<KorTemplateExpression>& value) {
  requireParameter(value != nullptr, "value != nil");
  rightOperand_ = value;
}

Value KorTemplateBinaryExpression::operatorAssignment(const Value& left, const Value& right,
                                                      KorTemplateEnvironment* environment) const {
  if (leftOperand_->kind() != kVariableKind) {
    NSException::raise(NSGenericException, "Left side of assignment operator is %@. Variable name expected", left);
  }
  const Name& variable = static_cast<const KorTemplateVariableExpression&>(*leftOperand_).variable();
  if (environment == nullptr) return right;
  const Ref<KorTemplateStack>& stack = environment->stack();
  const Ref<KorTemplateStackFrame> frame = stack == nullptr ? nullptr : stack->currentFrame();
  if (frame != nullptr) frame->setValueForVariableWithName(right, variable);
  return right;
}

Value KorTemplateBinaryExpression::operatorEquals(const Value& left, const Value& right) const {
  return !left.isAbsent() && left.isEqual(right);
}

Value KorTemplateBinaryExpression::operatorNotEquals(const Value& left, const Value& right) const {
  return !operatorEquals(left, right).isIdenticalTo(KorYES);
}

Value KorTemplateBinaryExpression::operatorMatches(const Value& left, const Value& right) const {
  return matches(left, right, KorTemplateLimits{}.regexRetries);
}

Value KorTemplateBinaryExpression::operatorLessThan(const Value& left, const Value& right) const {
  const std::optional<bool> answer = left.isLessThan(right);
  if (!answer.has_value()) NSException::raise(NSGenericException, "%@ does not implement isLessThan:", left);
  return *answer;
}

Value KorTemplateBinaryExpression::operatorGreaterThan(const Value& left, const Value& right) const {
  const std::optional<bool> answer = left.isGreaterThan(right);
  if (!answer.has_value()) NSException::raise(NSGenericException, "%@ does not implement isGreaterThan:", left);
  return *answer;
}

Value KorTemplateBinaryExpression::operatorLessThanOrEqualTo(const Value& left, const Value& right) const {
  const Value less = operatorLessThan(left, right);
  return less.isIdenticalTo(KorYES) ? less : operatorEquals(left, right);
}

Value KorTemplateBinaryExpression::operatorGreaterThanOrEqualTo(const Value& left, const Value& right) const {
  const Value greater = operatorGreaterThan(left, right);
  return greater.isIdenticalTo(KorYES) ? greater : operatorEquals(left, right);
}

Value KorTemplateBinaryExpression::operatorAdd(const Value& left, const Value& right) const {
  if (left.isNumber() && right.isNumber()) return left.doubleValue() + right.doubleValue();
  const NSDate* date = dateIn(left);
  if (date != nullptr && right.isNumber()) return date->addTimeInterval(right.doubleValue());
  return concatenation(left, right, longestString());
}

Value KorTemplateBinaryExpression::operatorSubtract(const Value& left, const Value& right) const {
  if (left.isNumber() && right.isNumber()) return left.doubleValue() - right.doubleValue();
  const NSDate* date = dateIn(left);
  if (date != nullptr && right.isNumber()) return date->addTimeInterval(-right.doubleValue());
  NSException::raise(NSGenericException, "Can't subtract operands of type %@ and %@", left.className(),
                     right.className());
}

Value KorTemplateBinaryExpression::operatorMultiply(const Value& left, const Value& right) const {
  if (left.isNumber() && right.isNumber()) return left.doubleValue() * right.doubleValue();
  NSException::raise(NSGenericException, "Can't multiply operands of type %@ and %@", left.className(),
                     right.className());
}

Value KorTemplateBinaryExpression::operatorDivide(const Value& left, const Value& right) const {
  if (!left.isNumber() || !right.isNumber()) {
    NSException::raise(NSGenericException, "Can't divide operands of type %@ and %@", left.className(),
                       right.className());
  }
  if (right.doubleValue() == 0.0) raiseDivideByZero();
  return left.doubleValue() / right.doubleValue();
}

Value KorTemplateBinaryExpression::operatorModulo(const Value& left, const Value& right) const {
  for (const Value* operand : {&left, &right}) {
    if (operand->isNumber()) continue;
    NSException::raise(NSGenericException, "Can't perform modulo on value of type %@. NSNumber required.",
                       operand->className());
  }
  return Value::adopt(remainderOf(left.peek(), right.peek()));
}

Value KorTemplateBinaryExpression::operatorAnd(const Value& left, const Value& right) const {
  return convertToBool(left) && convertToBool(right);
}

Value KorTemplateBinaryExpression::operatorOr(const Value& left, const Value& right) const {
  return convertToBool(left) || convertToBool(right);
}

Value KorTemplateBinaryExpression::evaluateWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  return environment->enter([&] { return Value::adopt(evaluate(*environment)); });
}

// The left operand where it is an operator itself; null otherwise.
const KorTemplateBinaryExpression* KorTemplateBinaryExpression::leftChain() const noexcept {
  return leftOperand_->kind() == kBinaryKind ? static_cast<const KorTemplateBinaryExpression*>(leftOperand_.get())
                                             : nullptr;
}

// The regular expression where the right operand is a literal of one; null otherwise.
const KorRegex* KorTemplateBinaryExpression::literalRegex() const noexcept {
  return rightOperand_->kind() == kRegexExpressionKind
             ? static_cast<const KorTemplateRegexExpression&>(*rightOperand_).regex().get()
             : nullptr;
}

// Most operators stand between two doubles that are at hand: they need no scope, no count and no call.
RawValue KorTemplateBinaryExpression::evaluate(KorTemplateEnvironment& environment) {
  double left = 0;
  double right = 0;
  if (findPlainDouble(*leftOperand_, environment, left) && findPlainDouble(*rightOperand_, environment, right)) {
    const RawValue result = applyToDoubles(op_, left, right);
    if (result.kind() != ValueKind::Absent) [[likely]]
      return result;
  }
  return evaluateAny(environment);
}

namespace {

bool isLiteralOrVariable(const KorTemplateExpression& expression) noexcept {
  return expression.kind() == kLiteralKind || expression.kind() == kVariableKind;
}

}  // namespace

// Whether both operands are numbers that are literals or stand in variables: the operator is no step then, also where
// they were not found quickly, which hangs on hashes and on other threads.
bool KorTemplateBinaryExpression::isOfPlainNumbers(const KorTemplateEnvironment& environment) const noexcept {
  double number = 0;
  const auto mayBeNumber = [](const KorTemplateExpression& operand) {
    if (operand.kind() == kLiteralKind) {
      return static_cast<const KorTemplateLiteralExpression&>(operand).literal().isNumber();
    }
    return operand.kind() == kVariableKind &&
           static_cast<const KorTemplateVariableExpression&>(operand).plainName() != nullptr;
  };
  return isForDoubles(op_) && mayBeNumber(*leftOperand_) && mayBeNumber(*rightOperand_) &&
         findDouble(peekExpression(*leftOperand_, environment), number) &&
         findDouble(peekExpression(*rightOperand_, environment), number);
}

RawValue KorTemplateBinaryExpression::evaluateAny(KorTemplateEnvironment& environment) {
  environment.checkStack();
  const bool isFree = isLiteralOrVariable(*leftOperand_) && isOfPlainNumbers(environment);
  environment.countSteps(isFree ? 0 : 1);  // looks at least where finding the numbers took the steps that there were
  if (const Name* const name = assignedName(); name != nullptr) [[unlikely]]
    return assignTo(*name, environment);
  RawValue left = peekExpression(*leftOperand_, environment);
  const bool isLent = !left.isNothing();
  if (!isLent && isLongChain(environment)) return evaluateChain(environment);
  if (op_ == KorTemplateOperatorAssignment) return assign(leftValue(environment), environment).leak();
  if (!isLent) left = leftOperand_->evaluate(environment);
  if (op_ == KorTemplateOperatorMatches && stringIn(left) != nullptr && literalRegex() != nullptr) {
    const Value held = Value::adopt(left);
    return RawValue::boolean(literalRegex()->matchesString(*stringIn(left), environment.limitsInForce().regexRetries));
  }
  if (!left.isNumber()) {
    return combine(isLent && !isQuiet(*rightOperand_, environment) ? Value::retaining(left) : Value::adopt(left),
                   environment);
  }
  // Numbers are worked on as they are: they hold no reference.
  RawValue right = peekExpression(*rightOperand_, environment);
  if (right.isNothing()) right = rightOperand_->evaluate(environment);
  const RawValue result = applyToRealNumbers(op_, left, right);
  return result.kind() != ValueKind::Absent ? result : combineNumber(left, right, environment);
}

// Combines a number with the right operand's value, which may be lent.
RawValue KorTemplateBinaryExpression::combineNumber(RawValue left, RawValue right,
                                                    KorTemplateEnvironment& environment) const {
  if (right.isNumber()) {
    const RawValue result = applyToNumbers(op_, left, right);
    if (result.kind() != ValueKind::Absent) [[likely]]
      return result;
  }
  if (op_ == KorTemplateOperatorAdd && stringIn(right) != nullptr) {
    const Value held = Value::adopt(right);
    return joinTextual(Value::adopt(left), right, environment.limitsInForce().stringLength);
  }
  return applyToValues(Value::adopt(left), Value::adopt(right), environment).leak();
}

// The variable that is assigned to, where it has no key path; null for everything else.
const Name* KorTemplateBinaryExpression::assignedName() const noexcept {
  const bool isAssigned = op_ == KorTemplateOperatorAssignment && leftOperand_->kind() == kVariableKind;
  return isAssigned ? static_cast<const KorTemplateVariableExpression&>(*leftOperand_).plainName() : nullptr;
}

// Whether the left operand is an operator, but for one of two numbers that live somewhere, which takes few steps.
bool KorTemplateBinaryExpression::isLongChain(const KorTemplateEnvironment& environment) const noexcept {
  const KorTemplateBinaryExpression* const left = leftChain();
  return left != nullptr && !(peekExpression(*left->leftOperand_, environment).isNumber() &&
                              peekExpression(*left->rightOperand_, environment).isNumber());
}

// The strings and numbers that a chain of additions joins to one text, where all of them live somewhere.
class KorTemplateBinaryExpression::QuietParts {
 public:
  // False for a chain that is none of that kind, as far as `peek` finds the values.
  template <class Peek>
  bool find(const KorTemplateBinaryExpression& last, const KorTemplateEnvironment& environment, const Peek& peek) {
    const KorTemplateBinaryExpression* first = &last;
    for (const KorTemplateBinaryExpression* node = &last; node != nullptr; node = node->leftChain()) {
      const bool isJoined = node->op_ == KorTemplateOperatorAdd && count_ + 2 <= kMost;
      if (!isJoined || !add(peek(*node->rightOperand_, environment))) return false;
      first = node;
    }
    if (!add(peek(*first->leftOperand_, environment))) return false;
    const bool isSum = parts_[count_ - 1].isNumber() && parts_[count_ - 2].isNumber();
    return !isSum && size_ <= environment.limitsInForce().stringLength;
  }

  // The most bytes that the text can have.
  std::size_t size() const noexcept { return size_; }

  // Hands the parts to `take` in order.
  template <class Take>
  void forEach(const Take& take) const {
    for (std::size_t left = count_; left > 0; --left) take(parts_[left - 1]);
  }

 private:
  static constexpr std::size_t kMost = 8;

  bool add(RawValue part) {
    const NSString* string = stringIn(part);
    parts_[count_++] = part;
    size_ += string != nullptr ? string->byteLength() : kNumberTextSize;
    return string != nullptr || part.isNumber();
  }

  std::array<RawValue, kMost> parts_;  // NOLINT(*-member-init): the first count_, from the last to the first
  std::size_t count_ = 0;
  std::size_t size_ = 0;
};

bool KorTemplateBinaryExpression::appendQuietly(KorTemplateEnvironment& environment, TextBuffer& text) const {
  QuietParts parts;
  if (!parts.find(*this, environment, peekNear)) return false;
  // No work on a text that counts: making it elsewhere would count that too.
  const std::size_t room = std::min(text.capacity() - text.size(), WorkMeter::kBytesOfStep - 1);
  if (parts.size() > room) return false;
  environment.step();
  parts.forEach([&](RawValue part) { environment.appendOutput(part, text); });
  return true;
}

// The same as a string of its own; nothing for every other value.
RawValue KorTemplateBinaryExpression::joinQuietly(const KorTemplateEnvironment& environment) const {
  QuietParts parts;
  if (!parts.find(*this, environment, peekExpression)) return RawValue::nothing();
  countWorkOnText(parts.size());
  const auto write = [&parts](char* out, std::uint32_t& length) {
    parts.forEach([&](RawValue part) {
      const NSString* string = stringIn(part);
      if (string == nullptr) {
        char* const end = writeNumber(out, part);
        length += static_cast<std::uint32_t>(end - out);
        out = end;
      } else {
        copyBytes(out, string->characters(), string->byteLength());
        length += string->length();
        out += string->byteLength();
      }
    });
    return out;
  };
  return Value(NSString::stringWrittenBy(write, parts.size())).leak();
}

// Left operands that are operators themselves make a chain, which is walked down first and evaluated on the way back,
// so that its length costs no stack.
RawValue KorTemplateBinaryExpression::evaluateChain(KorTemplateEnvironment& environment) const {
  if (const RawValue joined = joinQuietly(environment); !joined.isNothing()) return joined;
  constexpr std::size_t kShort = 16;
  std::array<const KorTemplateBinaryExpression*, kShort> shortChain;  // NOLINT(*-member-init): filled below
  std::vector<const KorTemplateBinaryExpression*> longChain;
  std::size_t length = 0;
  CycleWatch watch;
  for (const KorTemplateBinaryExpression* node = this; node != nullptr; node = node->leftChain()) {
    if (watch.isBackAt(node)) raiseEndlessChain();
    if (length > 0) environment.step();  // the last one is counted already
    if (length < kShort) {
      shortChain[length] = node;
    } else {
      longChain.push_back(node);
    }
    ++length;
  }
  Value value;
  for (std::size_t index = length; index > 0; --index) {
    const KorTemplateBinaryExpression& node = index > kShort ? *longChain[index - 1 - kShort] : *shortChain[index - 1];
    if (index == length) value = node.leftValue(environment);
    value = Value::adopt(node.combine(std::move(value), environment));
    environment.lookIfDue();  // finding the operands may have taken a while
  }
  return value.leak();
}

// The left operand's value, lent where the right operand cannot change it.
Value KorTemplateBinaryExpression::leftValue(KorTemplateEnvironment& environment) const {
  if (op_ == KorTemplateOperatorAssignment && leftOperand_->kind() == kVariableKind &&
      !static_cast<const KorTemplateVariableExpression&>(*leftOperand_).hasKeyPath()) {
    return Value::null();  // nobody sees a variable's old value
  }
  if (isQuiet(*rightOperand_, environment)) return operandOf(*leftOperand_, environment);
  return Value::adopt(leftOperand_->evaluate(environment));
}

RawValue KorTemplateBinaryExpression::combine(Value left, KorTemplateEnvironment& environment) const {
  if (op_ == KorTemplateOperatorAssignment) return assign(left, environment).leak();
  Value right = operandOf(*rightOperand_, environment);
  if (left.isNumber()) return combineNumber(left.peek(), right.leak(), environment);
  if (op_ == KorTemplateOperatorAdd && isTextual(left.peek()) && isTextual(right.peek())) {
    return joinTextual(std::move(left), right.peek(), environment.limitsInForce().stringLength);
  }
  return applyToValues(std::move(left), right, environment).leak();
}

RawValue KorTemplateBinaryExpression::assignTo(const Name& name, KorTemplateEnvironment& environment) const {
  Value right = Value::adopt(rightOperand_->evaluate(environment));
  requireOperands(Value::null(), right);
  right = forStorage(std::move(right));
  environment.setVariable(name, right);
  return right.leak();
}

// The value is taken, not lent: the variable keeps it.
Value KorTemplateBinaryExpression::assign(const Value& left, KorTemplateEnvironment& environment) const {
  Value right = Value::adopt(rightOperand_->evaluate(environment));
  requireOperands(left, right);
  return operatorAssignment(left, forStorage(std::move(right)), &environment);
}

void KorTemplateBinaryExpression::requireOperands(const Value& left, const Value& right) {
  if (left.isAbsent()) [[unlikely]]
    failAssertion("Binary expression: left expression returned nil");
  if (right.isAbsent()) [[unlikely]]
    failAssertion("Binary expression: right expression returned nil");
}

Value KorTemplateBinaryExpression::applyToValues(Value left, const Value& right,
                                                 KorTemplateEnvironment& environment) const {
  requireOperands(left, right);
  // Comparing and describing may run a host's code, which must not free what it is given.
  const RawValue raw = left.leak();
  const Value heldRight = Value::retaining(right.peek());
  Value heldLeft = raw.isOwned() ? Value::adopt(raw) : Value::retaining(raw);
  switch (op_) {
    case KorTemplateOperatorMatches:
      return matches(heldLeft, heldRight, environment.limitsInForce().regexRetries);
    case KorTemplateOperatorAdd:
      if (dateIn(heldLeft) != nullptr && heldRight.isNumber()) return operatorAdd(heldLeft, heldRight);
      return concatenation(std::move(heldLeft), heldRight, environment.limitsInForce().stringLength);
    default:
      break;
  }
  using Method = Value (KorTemplateBinaryExpression::*)(const Value& left, const Value& right) const;
  static constexpr Method kMethods[] = {
      nullptr,  // the assignment takes the environment too
      &KorTemplateBinaryExpression::operatorEquals,
      &KorTemplateBinaryExpression::operatorNotEquals,
      &KorTemplateBinaryExpression::operatorMatches,
      &KorTemplateBinaryExpression::operatorLessThan,
      &KorTemplateBinaryExpression::operatorGreaterThan,
      &KorTemplateBinaryExpression::operatorLessThanOrEqualTo,
      &KorTemplateBinaryExpression::operatorGreaterThanOrEqualTo,
      &KorTemplateBinaryExpression::operatorAdd,
      &KorTemplateBinaryExpression::operatorSubtract,
      &KorTemplateBinaryExpression::operatorMultiply,
      &KorTemplateBinaryExpression::operatorDivide,
      &KorTemplateBinaryExpression::operatorModulo,
      &KorTemplateBinaryExpression::operatorAnd,
      &KorTemplateBinaryExpression::operatorOr,
  };
  static_assert(std::size(kMethods) == kOperatorNames.size());
  const auto row = static_cast<std::size_t>(op_);
  return op_ > 0 && row < std::size(kMethods) ? (this->*kMethods[row])(heldLeft, heldRight) : Value::null();
}

Ref<KorTemplateExpression> KorTemplateBinaryExpression::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  // Along the chain of left operands by a loop, whatever its length.
  std::vector<const KorTemplateBinaryExpression*> chain;
  CycleWatch watch;
  for (const KorTemplateBinaryExpression* node = this; node != nullptr; node = node->leftChain()) {
    if (watch.isBackAt(node)) raiseEndlessChain();
    chain.push_back(node);
  }
  Ref<KorTemplateExpression> copy = copyOf(chain.back()->leftOperand_);
  for (auto node = chain.rbegin(); node != chain.rend(); ++node) {
    copy = makeRef<KorTemplateBinaryExpression>((*node)->op_, copy, copyOf((*node)->rightOperand_));
  }
  return copy;
}

void KorTemplateBinaryExpression::describe(Description& out) const {
  out.format("{ %@ operator: %@, leftOperand: %@, rightOperand: %@ }", Description::base(*this), nameOf(op_),
             leftOperand_, rightOperand_);
}

}  // namespace tavlo
