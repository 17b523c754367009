#pragma once

namespace httplib {
class Server;
} // namespace httplib

namespace fexo::tool {

class DevelopmentStore;

// Adds the development server's routes to `server`, kept in `store`, which must outlive it:
//
//   POST /api/Registration/RegisterNewDevice   keeps a device registration (validated); 200 {}
//   POST /api/Notification/GetNotificationContent
//                                              hands out the recipient's oldest queued
//                                              notification as a notification record, once;
//                                              404 {"errorCode":404,"errorMessage":…} when none
//   POST /dev/notifications                    queues a notification; answers the push
//                                              user-info a push provider would deliver for it
//   GET  /dev/registrations                    the kept registration bodies, oldest first
//
// A body that is not a JSON object gets 400 {"errorMessage":"The request body must be a JSON
// object"}; a JSON object with bad or missing keys gets 400 with one entry per failing key (see
// RequestValidation). The handlers run on the server's worker threads, several at once.
void addServiceRoutes(httplib::Server& server, DevelopmentStore& store);

} // namespace fexo::tool
