// Tells where this program finds the schema, and answers the capabilities query with it: two lines.
#include <iostream>
#include <string>

#include "Classes/GraphQL/FRXGraphQLInterpreter.h"
#include "Platform/FileSystem/ResourceBundle.h"

int main() {
  using namespace ferrox;
  const auto bundle = ResourceBundle::named("GraphQL", "bundle");
  std::cout << (bundle ? bundle->folder().string() : "none") << '\n';
  FRXGraphQLInterpreter().query(std::string(FRXCapabilitiesQuery),
                                [](const std::string& response) { std::cout << response << '\n'; });
}
