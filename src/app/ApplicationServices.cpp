#include "app/ApplicationServices.h"

namespace harbor {

ApplicationServices& ApplicationServices::shared() {
  static ApplicationServices services;
  return services;
}

}  // namespace harbor
