// Many templates, compiled once at the start, and rendered by a pool of threads: the templates and the data that all
// share are shared, each thread has an environment of its own and uses it for one job after another.
#include <tavlo/tavlo.h>

#include <atomic>
#include <cstddef>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Job {
  std::size_t letter;    // which template
  const char* customer;  // whom it goes to
  std::string text;      // what came out
};

using Templates = std::vector<tavlo::Ref<tavlo::KorTemplate>>;

// Takes the next job until none is left.
void work(const Templates& letters, const tavlo::Value& shop, std::vector<Job>& jobs, std::atomic<std::size_t>& next) {
  const auto environment = tavlo::KorTemplateEnvironment::environment();
  environment->setGlobal("shop", shop);
  for (std::size_t index = next++; index < jobs.size(); index = next++) {
    Job& job = jobs[index];
    const auto output = tavlo::KorTemplateStringStream::stringStream();
    environment->setOutputStream(output);
    environment->setGlobal("customer", job.customer);
    environment->setGlobal("number", index + 1);
    letters[job.letter]->executeWithEnvironment(environment.get());
    job.text = output->buffer()->string();
  }
}

}  // namespace

int main() {
  Templates letters;
  for (const char* text : {"<?= $number ?>. Dear <?= $customer ?>, welcome to <?= $shop.name ?>.\n",
                           "<?= $number ?>. <?= $customer ?>: your order leaves <?= $shop.town ?> today.\n",
                           "<?= $number ?>. Goodbye, <?= $customer ?>. Call <?= $shop.name ?> any time.\n"}) {
    letters.push_back(tavlo::KorTemplate::compile(text));
  }
  const tavlo::Value shop = tavlo::NSDictionary::dictionaryWithEntries({{"name", "Harbour Books"}, {"town", "Whitby"}});
  shop.share();  // from here on several threads may read it

  std::vector<Job> jobs;
  for (const char* customer : {"Ada", "Grace", "Edith", "Joan"}) {
    for (std::size_t letter = 0; letter < letters.size(); ++letter) jobs.push_back({letter, customer, ""});
  }
  std::atomic<std::size_t> next = 0;
  {
    std::vector<std::jthread> pool;
    for (int count = 0; count < 4; ++count) pool.emplace_back([&] { work(letters, shop, jobs, next); });
  }
  for (const Job& job : jobs) std::cout << job.text;
}
