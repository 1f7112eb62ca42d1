#ifndef ZEPH_GENERAL_ROUTE_CHOICE_H
#define ZEPH_GENERAL_ROUTE_CHOICE_H

#include <string>

#include "zeph/factor/first_route.h"

namespace zeph {

/// The route taken and the reason, a clause such as "A.mtx is symmetric with a usable diagonal".
struct RouteChoice {
  Route route = Route::Lu;
  std::string reason;

  /// "route: Cholesky (A.mtx is symmetric ...)"
  std::string sentence() const {
    return std::string("route: ") + name(route) + " (" + reason + ")";
  }
};

}  // namespace zeph

#endif
