#pragma once

