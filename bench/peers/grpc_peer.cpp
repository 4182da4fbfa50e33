// bench_grpc: server and client of the gRPC baseline, unary calls over a Unix socket with the
// synchronous interface. A program of its own, so that the others don't carry gRPC along.

#include <grpcpp/grpcpp.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "Text.grpc.pb.h"
#include "harness/Role.h"

namespace bench {
namespace {

/// {"socket", "reply"}
class GrpcServer final : public ServerRole {
 public:
  explicit GrpcServer(const Json::Value& arguments) : service_(arguments["reply"].asString()) {
    grpc::ServerBuilder builder;
    builder.AddListeningPort("unix:" + arguments["socket"].asString(),
                             grpc::InsecureServerCredentials());
    builder.RegisterService(&service_);
    server_ = builder.BuildAndStart();
    if (server_ == nullptr) throw std::runtime_error("the gRPC server doesn't start");
  }
  ~GrpcServer() override { server_->Shutdown(); }

 private:
  class Service final : public Server::Service {
   public:
    explicit Service(std::string reply) : reply_(std::move(reply)) {}
    grpc::Status Ask(grpc::ServerContext*, const Text*, Text* reply) override {
      reply->set_text(reply_);
      return grpc::Status::OK;
    }

   private:
    const std::string reply_;
  };

  Service service_;
  std::unique_ptr<grpc::Server> server_;
};

/// {"socket", "request"}
class GrpcClient final : public AskingRole {
 public:
  explicit GrpcClient(const Json::Value& arguments)
      : stub_(Server::NewStub(grpc::CreateChannel("unix:" + arguments["socket"].asString(),
                                                  grpc::InsecureChannelCredentials()))) {
    request_.set_text(arguments["request"].asString());
    if (!ask()) throw std::runtime_error("the gRPC server doesn't answer");
  }

 private:
  bool ask() override {
    grpc::ClientContext context;
    context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(2));
    return stub_->Ask(&context, request_, &reply_).ok();
  }

  std::unique_ptr<Server::Stub> stub_;
  Text request_;
  Text reply_;
};

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  constexpr bench::RoleEntry kRoles[] = {{"grpc-server", bench::makeRole<bench::GrpcServer>},
                                         {"grpc-client", bench::makeRole<bench::GrpcClient>}};
  if (argc != 4) {
    std::fprintf(stderr, "bench_grpc is started by bench_host\n");
    return 2;
  }
  return bench::playRole(kRoles, argv[2], argv[3]);
}
