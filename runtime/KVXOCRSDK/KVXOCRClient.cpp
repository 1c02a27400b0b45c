#include <KVXOCRSDK/KVXOCRClient.h>

#include "OcrClient.h"

KVXOCRClient *KVXOCRClient::create()
{
    return new kvx::OcrClient;
}
