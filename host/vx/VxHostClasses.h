#pragma once

// Enters the framework's own classes in the type registry, so scripts can list and test them
// before any instance exists. The application does so when it starts.
void vxInitHostClasses();
