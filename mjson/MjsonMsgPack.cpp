// Placeholder until the MessagePack codec lands.
