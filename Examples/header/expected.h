#ifndef SHOP_ORDERS_H
#define SHOP_ORDERS_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace shop {

// How far an order has come.
enum class State : std::uint8_t { Open = 0, Paid = 1, Shipped = 2, Cancelled = 3 };

inline const char* nameOf(State value) {
  switch (value) {
    case State::Open:
      return "open";
    case State::Paid:
      return "paid";
    case State::Shipped:
      return "shipped";
    case State::Cancelled:
      return "cancelled";
  }
  return "";
}

// Who takes it to the customer.
enum class Carrier : std::int16_t { Post = 0, Bicycle = 1 };

inline const char* nameOf(Carrier value) {
  switch (value) {
    case Carrier::Post:
      return "post";
    case Carrier::Bicycle:
      return "bicycle";
  }
  return "";
}

// Somebody who orders.
struct Customer {
  std::uint64_t id = 0;
  std::string name;
  std::string mail;
  std::optional<std::string> phone;
  bool newsletter = true;
  bool blocked = false;

  friend bool operator==(const Customer&, const Customer&) = default;
};

// One line of an order.
struct Item {
  std::string sku;
  std::int32_t quantity = 1;
  // In cents.
  std::int64_t price = 0;
  // In kilograms.
  double weight = 0.25;
  std::optional<std::string> picture;

  friend bool operator==(const Item&, const Item&) = default;
};

// What a customer has ordered at one time.
struct Order {
  Customer customer;
  std::vector<Item> items;
  std::string currency = "EUR";
  State state = State::Open;
  std::optional<Carrier> carrier;
  // When each state was entered, by its name.
  std::map<std::string, std::vector<std::chrono::sys_seconds>> history;

  friend bool operator==(const Order&, const Order&) = default;
};

}  // namespace shop

#endif  // SHOP_ORDERS_H
