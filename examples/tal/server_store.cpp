#include "server_store.h"

#include "failure.h"
#include "terminal.h"

#include <kit/text/result.h>
#include <stores/postgres/postgres_store.h>

#include <utility>

namespace Tal {

std::shared_ptr<TalVcs::Kit::IObjectStore> OpenServer(const std::string& place) {
  using TalVcs::Kit::PostgresStore;
  constexpr const char* kMainRepository = "main";
  const std::size_t mark = place.find('#');
  const std::string name = mark == place.npos ? kMainRepository : place.substr(mark + 1);
  auto store = PostgresStore::Open(place.substr(0, mark), name);
  if (!store) throw Failure("cannot open the remote: " + Printable(Describe(store.error())));
  return std::make_shared<PostgresStore>(*std::move(store));
}

}  // namespace Tal
